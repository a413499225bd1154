// RendererTest.cpp - decoding, scaling and encoding real pictures, and refusing hostile ones.
#include "GSImageScaler.h"
#include "GSPNGWriter.h"
#include "GSPreviewDecoder.h"
#include "GSWorkDeadline.h"
#include "SampleImages.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <zlib.h>

using namespace testing_support;
using samples::drawFlat;
using samples::Picture;
using samples::PNGLayout;

namespace {

constexpr int kJPEG = 2, kPNG = 3;

struct Decoded {
    bool ok = false;
    GSRasterImage image;
    std::string error;
};

Decoded decode(const Bytes& bytes, int kind, int targetWidth = 0, int targetHeight = 0) {
    Decoded d;
    d.ok = GSDecodePreview(bytes.data(), static_cast<long>(bytes.size()), kind, targetWidth,
                           targetHeight, &d.image, &d.error);
    return d;
}

// Decode at the target, scale to it, encode, and read the PNG back: a thumbnail's whole way.
Picture render(const Bytes& bytes, int kind, int width, int height) {
    Decoded d = decode(bytes, kind, width, height);
    GSRasterImage scaled;
    Bytes png;
    EXPECT_TRUE(d.ok) << d.error;
    EXPECT_TRUE(d.ok && GSScaleImage(d.image, width, height, &scaled)) << "not scaled";
    EXPECT_TRUE(scaled.width > 0 && GSEncodePNG(scaled, {}, &png, &d.error)) << d.error;
    return samples::decodePNG(png);
}

double mean(const Picture& p, int channel, int x0, int y0, int x1, int y1) {
    double sum = 0;
    for (int y = y0; y < y1; ++y)
        for (int x = x0; x < x1; ++x)
            sum += p.pixels[(static_cast<size_t>(y) * p.width + x) * p.channels + channel];
    return sum / ((x1 - x0) * (y1 - y0));
}

void putBig(unsigned char* at, unsigned long value, int bytes) {
    for (int i = 0; i < bytes; ++i)
        at[i] = static_cast<unsigned char>(value >> (8 * (bytes - 1 - i)));
}

// Replaces the width and height in a PNG's IHDR (with a valid CRC) or a JPEG's frame header.
Bytes withSize(Bytes bytes, unsigned long width, unsigned long height) {
    if (bytes[0] == 0x89) {
        putBig(&bytes[16], width, 4);
        putBig(&bytes[20], height, 4);
        putBig(&bytes[29], crc32(0, bytes.data() + 12, 17), 4);
        return bytes;
    }
    size_t i = 2;
    while (bytes[i + 1] != 0xC0 && bytes[i + 1] != 0xC2) // baseline or progressive
        i += 2 + (bytes[i + 2] << 8 | bytes[i + 3]);
    putBig(&bytes[i + 5], height, 2);
    putBig(&bytes[i + 7], width, 2);
    return bytes;
}

// A progressive colour JPEG of libjpeg's 10 scans with its first scan, the DC one (which
// depends on no earlier scan), repeated until it has `scans`.
Bytes withScans(const Bytes& jpeg, int scans) {
    size_t first = 2;
    while (jpeg[first + 1] != 0xDA)
        first += 2 + (jpeg[first + 2] << 8 | jpeg[first + 3]);
    size_t end = first + 2 + (jpeg[first + 2] << 8 | jpeg[first + 3]);
    while (jpeg[end] != 0xFF || jpeg[end + 1] == 0 || (jpeg[end + 1] & 0xF8) == 0xD0)
        ++end; // entropy data, up to the next marker that is not a restart
    Bytes out(jpeg.begin(), jpeg.begin() + static_cast<long>(end));
    for (int i = 10; i < scans; ++i)
        out.insert(out.end(), jpeg.begin() + static_cast<long>(first),
                   jpeg.begin() + static_cast<long>(end));
    out.insert(out.end(), jpeg.begin() + static_cast<long>(end), jpeg.end());
    return out;
}

int channel(uint32_t pixel, int shift) {
    return static_cast<int>((pixel >> shift) & 255);
}

} // namespace

TEST(Renderer, DecodedSizeCoversTheTargetAtTheSmallestJPEGScale) {
    Bytes big = samples::encodeJPEG(drawFlat(2048, 1536, {10, 200, 90}), 75);
    Bytes odd = samples::encodeJPEG(drawFlat(1000, 700, {10, 200, 90}), 75);
    Bytes png = samples::encodePNG(drawFlat(96, 64, {10, 200, 90}));
    Bytes scans = withScans(samples::encodeJPEG(drawFlat(64, 48, {10, 200, 90}), 75, true), 100);
    struct Case {
        const char* what;
        const Bytes& bytes;
        int kind, targetWidth, targetHeight, width, height;
    } cases[] = {
        {"1/8 exactly", big, kJPEG, 256, 192, 256, 192},
        {"one pixel more needs 2/8", big, kJPEG, 257, 192, 512, 384},
        {"the taller side decides", big, kJPEG, 256, 400, 768, 576},
        {"no target: full size", big, kJPEG, 0, 0, 2048, 1536},
        {"larger than the picture: full size", big, kJPEG, 4096, 3072, 2048, 1536},
        {"sizes round up", odd, kJPEG, 200, 140, 250, 175},
        {"PNG is always full size", png, kPNG, 10, 10, 96, 64},
        {"progressive, 100 scans", scans, kJPEG, 0, 0, 64, 48},
        {"without its end marker", Bytes(scans.begin(), scans.end() - 2), kJPEG, 0, 0, 64, 48},
    };
    for (const Case& c : cases) {
        Decoded d = decode(c.bytes, c.kind, c.targetWidth, c.targetHeight);
        ASSERT_TRUE(d.ok) << c.what << ": " << d.error;
        EXPECT_EQ(d.image.width, c.width) << c.what;
        EXPECT_EQ(d.image.height, c.height) << c.what;
        EXPECT_EQ(d.image.pixels.size(), static_cast<size_t>(c.width) * c.height) << c.what;
    }
}

TEST(Renderer, FlatColourSurvivesEveryLayout) {
    using Sample = std::vector<unsigned char>;
    const Sample grey = {90}, greyA = {90, 128}, rgb = {200, 120, 40}, rgba = {200, 120, 40, 128};
    auto flat = [](const Sample& sample) { return drawFlat(96, 64, sample); };
    auto png = [&](const Sample& sample, PNGLayout::Colour colour, int depth = 8,
                   bool adam7 = false) {
        return samples::encodePNG(flat(sample), PNGLayout{colour, depth, adam7});
    };
    struct Case {
        const char* what;
        const Sample& sample;
        Bytes bytes;
    } cases[] = {
        {"JPEG grey", grey, samples::encodeJPEG(flat(grey), 95)},
        {"JPEG CMYK, Adobe", rgb, samples::encodeCMYKJPEG(flat(rgb), 95, true)},
        {"JPEG CMYK, plain", rgb, samples::encodeCMYKJPEG(flat(rgb), 95, false)},
        {"PNG grey", grey, png(grey, PNGLayout::kGrey)},
        {"PNG 16-bit RGB", rgb, png(rgb, PNGLayout::kRGB, 16)},
        {"PNG 16-bit grey and alpha", greyA, png(greyA, PNGLayout::kGreyAlpha, 16)},
        {"PNG palette with tRNS", rgba, png(rgba, PNGLayout::kPalette)},
        {"PNG interlaced RGBA", rgba, png(rgba, PNGLayout::kRGBA, 8, true)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        bool colour = c.sample.size() > 2, transparent = c.sample.size() % 2 == 0;
        int expect[4] = {c.sample[0], c.sample[colour ? 1 : 0], c.sample[colour ? 2 : 0],
                         transparent ? c.sample.back() : 255};
        Picture out = render(c.bytes, c.bytes[0] == 0x89 ? kPNG : kJPEG, 40, 27); // a bit unevenly
        ASSERT_EQ(out.width, 40);
        ASSERT_EQ(out.height, 27);
        ASSERT_EQ(out.channels, transparent ? 4 : 3) << "RGB for opaque pictures, else RGBA";
        for (int ch = 0; ch < out.channels; ++ch) {
            EXPECT_NEAR(mean(out, ch, 0, 0, out.width, out.height), expect[ch], 2.5)
                << "mean of channel " << ch;
            int worst = 0;
            for (size_t i = ch; i < out.pixels.size(); i += out.channels)
                worst = std::max(worst, std::abs(out.pixels[i] - expect[ch]));
            EXPECT_LE(worst, 4) << "channel " << ch << " strays at some pixel (the edges?)";
        }
    }
}

TEST(Renderer, PictureKeepsItsOrientation) {
    // Red, green / blue, white quadrants; a flip, a mirror or swapped channels moves them.
    Picture p = drawFlat(64, 64, {0, 0, 0});
    const int colours[4][3] = {{220, 30, 30}, {30, 200, 40}, {40, 60, 210}, {240, 240, 240}};
    for (int i = 0; i < 64 * 64 * 3; ++i)
        p.pixels[i] =
            static_cast<unsigned char>(colours[(i / 3 / 64 / 32) * 2 + i / 3 % 64 / 32][i % 3]);
    for (auto [kind, bytes] :
         {std::pair{kJPEG, samples::encodeJPEG(p, 95)},
          std::pair{kPNG, samples::encodePNG(p, PNGLayout{PNGLayout::kRGB, 8, true})}}) {
        Picture out = render(bytes, kind, 16, 16);
        ASSERT_EQ(out.width, 16);
        for (int q = 0; q < 4; ++q) {
            int x0 = (q % 2) * 8 + 2, y0 = (q / 2) * 8 + 2;
            for (int c = 0; c < 3; ++c)
                EXPECT_NEAR(mean(out, c, x0, y0, x0 + 4, y0 + 4), colours[q][c], 8)
                    << (kind == kJPEG ? "JPEG" : "PNG") << " quadrant " << q << " channel " << c;
        }
    }
    // The rows of every interlacing pass land where they belong, 16-bit ones too.
    Picture land = samples::drawLandscape(61, 37, false);
    EXPECT_EQ(
        decode(samples::encodePNG(land, PNGLayout{PNGLayout::kRGB, 16, true}), kPNG).image.pixels,
        decode(samples::encodePNG(land), kPNG).image.pixels);
}

TEST(Renderer, ShrinkingAveragesWithoutAliasing) {
    GSRasterImage board{64, 64, false, {}};
    for (int i = 0; i < 64 * 64; ++i)
        board.pixels.push_back((i / 64 + i % 64) % 2 ? 0xFFFFFFFFu : 0xFF000000u);
    for (int size : {16, 20, 7}) { // by 4, by 3.2, by 9.14
        GSRasterImage small;
        ASSERT_TRUE(GSScaleImage(board, size, size, &small));
        ASSERT_EQ(small.pixels.size(), static_cast<size_t>(size * size));
        int lowest = 255, highest = 0;
        for (uint32_t p : small.pixels) {
            lowest = std::min(lowest, channel(p, 8));
            highest = std::max(highest, channel(p, 8));
            EXPECT_EQ(channel(p, 16), channel(p, 0)) << "a grey picture stays grey";
        }
        int spread = size == 16 ? 3 : 14; // a box of 3.2 pixels covers up to 5 % more of one colour
        EXPECT_GE(lowest, 128 - spread) << "to " << size << ": aliasing shows the checks";
        EXPECT_LE(highest, 127 + spread) << "to " << size << ": aliasing shows the checks";
    }
}

TEST(Renderer, StretchingGivesTheExactSizeAndKeepsFlatColour) {
    // Premultiplied half-transparent orange, and an opaque one; edges must not fade.
    for (uint32_t colour : {0x80643C14u, 0xFFC87828u}) {
        GSRasterImage flat{50, 40, colour >> 24 != 255, std::vector<uint32_t>(50 * 40, colour)};
        for (auto [w, h] :
             {std::pair{173, 9}, std::pair{9, 173}, std::pair{1, 1}, std::pair{333, 301}}) {
            GSRasterImage out;
            ASSERT_TRUE(GSScaleImage(flat, w, h, &out));
            ASSERT_EQ(out.width, w);
            ASSERT_EQ(out.height, h);
            ASSERT_EQ(out.pixels.size(), static_cast<size_t>(w) * h);
            EXPECT_EQ(out.hasAlpha, flat.hasAlpha);
            int worst = 0;
            for (uint32_t p : out.pixels)
                for (int shift : {0, 8, 16, flat.hasAlpha ? 24 : 0})
                    worst = std::max(worst, std::abs(channel(p, shift) - channel(colour, shift)));
            EXPECT_LE(worst, 1) << std::hex << colour << std::dec << " to " << w << " x " << h;
        }
    }
}

TEST(Renderer, HostileImagesFailCleanly) {
    Bytes jpeg = samples::encodeJPEG(samples::drawLandscape(64, 48, false), 85);
    Bytes png = samples::encodePNG(samples::drawLandscape(40, 30, true));
    Bytes progressive = samples::encodeJPEG(samples::drawLandscape(64, 48, false), 85, true);
    struct Case {
        const char* what;
        Bytes bytes;
        int kind;
        int target;         // the thumbnail's size, or 0 for the full picture
        bool refusedBySize; // must fail before any pixel is allocated
        const char* says = "";
    } cases[] = {
        {"PNG of 100000 x 100000", withSize(png, 100000, 100000), kPNG, 256, true},
        {"PNG of 6000 x 6000", withSize(png, 6000, 6000), kPNG, 256, true},
        {"JPEG of 65000 x 65000", withSize(jpeg, 65000, 65000), kJPEG, 0, true},
        {"JPEG of 30000 x 30000, even at 1/8", withSize(jpeg, 30000, 30000), kJPEG, 256, true},
        {"JPEG of 9000 x 9000, in full", withSize(jpeg, 9000, 9000), kJPEG, 0, true},
        {"PNG of width 0", withSize(png, 0, 30), kPNG, 256, true},
        {"JPEG of width 0", withSize(jpeg, 0, 48), kJPEG, 256, true},
        {"PNG read as JPEG", png, kJPEG, 256, false},
        {"JPEG read as PNG", jpeg, kPNG, 256, false},
        {"nothing", {}, kJPEG, 256, true},
        {"progressive JPEG of 8000 x 8000, even at 1/8", withSize(progressive, 8000, 8000), kJPEG,
         256, true, "too large for the memory budget"},
        {"JPEG of 101 scans", withScans(progressive, 101), kJPEG, 256, true, "more than 100 scans"},
    };
    for (const Case& c : cases) {
        Decoded d = decode(c.bytes, c.kind, c.target, c.target);
        EXPECT_FALSE(d.ok) << c.what;
        EXPECT_FALSE(d.error.empty()) << c.what << ": no reason given";
        EXPECT_NE(d.error.find(c.says), std::string::npos) << c.what << ": " << d.error;
        if (c.refusedBySize) {
            EXPECT_EQ(d.image.pixels.capacity(), 0u) << c.what << ": pixels allocated";
        }
    }

    // Truncated anywhere: an error, never half a picture filled with grey. Only the end-of-image
    // marker, the last two bytes, can go without loss.
    for (size_t cut = 0; cut < jpeg.size(); cut += cut + 3 < jpeg.size() ? 3 : 1)
        EXPECT_EQ(decode(Bytes(jpeg.begin(), jpeg.begin() + cut), kJPEG, 64, 48).ok,
                  cut + 2 >= jpeg.size())
            << "JPEG cut to " << cut << " of " << jpeg.size() << " bytes";
    for (size_t cut = 0; cut < png.size() - 12; cut += 3) // up to the final IEND chunk
        EXPECT_FALSE(decode(Bytes(png.begin(), png.begin() + cut), kPNG).ok)
            << "PNG cut to " << cut << " of " << png.size() << " bytes";

    // A flipped bit in the compressed data: the chunk's CRC no longer matches.
    auto big32 = [&](size_t at) {
        return static_cast<size_t>(png[at] << 24 | png[at + 1] << 16 | png[at + 2] << 8 |
                                   png[at + 3]);
    };
    size_t idat = 8;
    while (std::memcmp(&png[idat + 4], "IDAT", 4) != 0)
        idat += 12 + big32(idat);
    for (size_t at = idat + 8; at < idat + 8 + big32(idat); at += big32(idat) / 7 + 1) {
        Bytes corrupt = png;
        corrupt[at] ^= 0x10;
        EXPECT_FALSE(decode(corrupt, kPNG).ok) << "flipped bit at " << at;
    }
}

// Each long loop gives up once the thread's deadline has passed (the cache's tests see that one
// not yet passed holds nothing up).
TEST(Renderer, WorkStopsOnceItsDeadlineHasPassed) {
    const Picture picture = samples::drawLandscape(300, 200, true);
    const GSRasterImage decoded = decode(samples::encodePNG(picture), kPNG).image;
    GSRasterImage scaled;
    struct Case {
        const char* what;
        std::function<bool()> work;
    } cases[] = {
        {"JPEG", [&] { return decode(samples::encodeJPEG(picture, 85), kJPEG, 150, 100).ok; }},
        {"progressive JPEG",
         [&] { return decode(samples::encodeJPEG(picture, 85, true), kJPEG, 150, 100).ok; }},
        {"PNG", [&] { return decode(samples::encodePNG(picture), kPNG).ok; }},
        {"scaling", [&] { return GSScaleImage(decoded, 100, 67, &scaled); }},
    };
    for (const Case& c : cases) {
        EXPECT_TRUE(c.work()) << c.what << " without a deadline";
        GSWorkDeadline spent(0);
        EXPECT_FALSE(c.work()) << c.what << " after its deadline";
        EXPECT_TRUE(GSWorkTimedOut()) << c.what;
    }
}
