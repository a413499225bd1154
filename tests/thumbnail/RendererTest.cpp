// RendererTest.cpp - decoding, scaling and encoding real pictures, and refusing hostile ones.
#include "SampleImages.h"
#include "TestSupport.h"
#include "thumbnail/GSImageScaler.h"
#include "thumbnail/GSPNGWriter.h"
#include "thumbnail/GSPreviewDecoder.h"
#include "thumbnail/GSThumbnailRenderer.h"
#include "thumbnail/GSWorkDeadline.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string_view>
#include <zlib.h>

using namespace testing_support;
using namespace samples;

namespace {

constexpr int kJPEG = 2, kPNG = 3;

// kind 0: as the bytes' signature says. Returns the error: "" when decoded.
std::string decode(const Bytes& bytes, int targetWidth = 0, int targetHeight = 0, int kind = 0,
                   GSRasterImage* image = nullptr) {
    GSRasterImage scratch;
    std::string error;
    if (kind == 0) kind = !bytes.empty() && bytes[0] == 0x89 ? kPNG : kJPEG;
    if (GSDecodePreview(bytes.data(), static_cast<long>(bytes.size()), kind, targetWidth,
                        targetHeight, image ? image : &scratch, &error))
        return "";
    return error;
}

void putBig(Bytes& b, size_t at, unsigned long value, int bytes) {
    for (int i = 0; i < bytes; ++i)
        b[at + i] = static_cast<unsigned char>(value >> (8 * (bytes - 1 - i)));
}

// The offset of the first JPEG segment of `marker` (or of any of the two).
size_t segment(const Bytes& jpeg, int marker, int other = -1) {
    size_t i = 2;
    while (jpeg[i + 1] != marker && jpeg[i + 1] != other)
        i += 2 + (jpeg[i + 2] << 8 | jpeg[i + 3]);
    return i;
}

// Replaces the width and height in a PNG's IHDR (with a valid CRC) or a JPEG's frame header.
Bytes withSize(Bytes bytes, unsigned long width, unsigned long height) {
    if (bytes[0] == 0x89) {
        putBig(bytes, 16, width, 4);
        putBig(bytes, 20, height, 4);
        putBig(bytes, 29, crc32(0, bytes.data() + 12, 17), 4);
        return bytes;
    }
    size_t frame = segment(bytes, 0xC0, 0xC2); // baseline or progressive
    putBig(bytes, frame + 5, height, 2);
    putBig(bytes, frame + 7, width, 2);
    return bytes;
}

// A progressive colour JPEG of libjpeg's 10 scans with its first scan, the DC one (which
// depends on no earlier scan), repeated until it has `scans`.
Bytes withScans(const Bytes& jpeg, int scans) {
    long first = static_cast<long>(segment(jpeg, 0xDA));
    long end = first + 2 + (jpeg[first + 2] << 8 | jpeg[first + 3]);
    while (jpeg[end] != 0xFF || jpeg[end + 1] == 0 || (jpeg[end + 1] & 0xF8) == 0xD0)
        ++end; // entropy data, up to the next marker that is not a restart
    Bytes out(jpeg.begin(), jpeg.begin() + end);
    for (int i = 10; i < scans; ++i)
        out.insert(out.end(), jpeg.begin() + first, jpeg.begin() + end);
    out.insert(out.end(), jpeg.begin() + end, jpeg.end());
    return out;
}

} // namespace

TEST(Renderer, DecodesToTheTargetAndRefusesHostileImages) {
    const Bytes large = encodeJPEG(drawFlat(2048, 1536, {10, 200, 90}), 75);
    const Bytes scans = withScans(encodeJPEG(drawFlat(64, 48, {10, 200, 90}), 75, true), 100);
    const Bytes jpeg = encodeJPEG(drawLandscape(64, 48, false), 85);
    const Bytes png = encodePNG(drawLandscape(40, 30, true));
    const Bytes interlaced = encodePNG(drawLandscape(40, 30, true), {PNGLayout::kRGBA, 8, true});
    const Bytes progressive = encodeJPEG(drawLandscape(64, 48, false), 85, true);
    struct Case {
        const char* what;
        Bytes bytes;
        int targetWidth, targetHeight, width, height; // 0: full size; 0: refused, unallocated
        const char* says = "";                        // in the reason
        int kind = 0;                                 // 0: as the bytes' signature says
    } cases[] = {
        {"JPEG to the target", large, 257, 100, 257, 100},
        {"no target: full size", large, 0, 0, 2048, 1536},
        {"PNG beyond what is held whole, streamed",
         encodePNG(Picture{6000, 4500, 3, Bytes(81000000, 90)}), 256, 192, 256, 192},
        {"progressive, 100 scans", scans, 0, 0, 64, 48},
        {"without its end marker", Bytes(scans.begin(), scans.end() - 2), 0, 0, 64, 48},
        {"PNG of 100000 x 100000", withSize(png, 100000, 100000), 256, 256, 0, 0},
        {"interlaced, 6000 x 6000", withSize(interlaced, 6000, 6000), 256, 256, 0, 0, "budget"},
        {"JPEG of 30000 x 30000, even at 1/8", withSize(jpeg, 30000, 30000), 256, 256, 0, 0},
        {"JPEG of 9000 x 9000, in full", withSize(jpeg, 9000, 9000), 0, 0, 0, 0},
        {"PNG of width 0", withSize(png, 0, 30), 256, 256, 0, 0},
        {"JPEG of width 0", withSize(jpeg, 0, 48), 256, 256, 0, 0},
        {"PNG read as JPEG", png, 256, 256, 0, 0, "", kJPEG},
        {"JPEG read as PNG", jpeg, 256, 256, 0, 0, "", kPNG},
        {"nothing", {}, 256, 256, 0, 0},
        {"progressive 8000 x 8000", withSize(progressive, 8000, 8000), 256, 256, 0, 0, "memory"},
        {"JPEG of 101 scans", withScans(progressive, 101), 256, 256, 0, 0, "more than 100 scans"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        GSRasterImage image;
        std::string error = decode(c.bytes, c.targetWidth, c.targetHeight, c.kind, &image);
        ASSERT_EQ(error.empty(), c.width > 0) << error;
        if (error.empty()) {
            EXPECT_EQ(std::tuple(image.width, image.height, image.pixels.size()),
                      std::tuple(c.width, c.height, size_t(c.width) * c.height));
            // The decoder's loops give up once the thread's deadline has passed.
            GSWorkDeadline spent(0);
            EXPECT_NE(decode(c.bytes, c.targetWidth, c.targetHeight, c.kind), "");
            EXPECT_TRUE(GSWorkTimedOut()) << "failed, but not for its deadline";
        } else {
            EXPECT_NE(error.find(c.says), std::string::npos) << error;
            EXPECT_EQ(image.pixels.capacity(), 0u) << "pixels allocated";
        }
    }

    // Truncated anywhere: an error, never half a picture filled with grey. Only the end-of-image
    // marker, the last two bytes, can go without loss.
    for (size_t cut = 0; cut < jpeg.size(); cut += cut + 3 < jpeg.size() ? 3 : 1)
        EXPECT_EQ(decode(Bytes(jpeg.begin(), jpeg.begin() + cut), 64, 48).empty(),
                  cut + 2 >= jpeg.size())
            << "JPEG cut to " << cut;
    // A PNG cut before its final IEND chunk, or with a flipped bit in its image data (from its
    // length field up to IEND): a length or the chunk's CRC is wrong. (A wrong CRC in an
    // ancillary chunk is only warned about.)
    const size_t idat =
        std::string_view(reinterpret_cast<const char*>(png.data()), png.size()).find("IDAT") - 4;
    for (size_t at = 0; at < png.size() - 12; at += 3) {
        Bytes corrupt = png;
        corrupt[at] ^= 0x10;
        EXPECT_NE(decode(Bytes(png.begin(), png.begin() + at)), "") << "PNG cut to " << at;
        EXPECT_TRUE(at < idat || !decode(corrupt).empty()) << "flipped bit at " << at;
    }
}

// Red, green / blue, white quadrants (grey ones take the first channel), half transparent when
// the picture has alpha: a flip, a mirror, swapped channels or a wrong conversion changes them.
const int kQuadrants[4][3] = {{220, 30, 30}, {30, 200, 40}, {40, 60, 210}, {240, 240, 240}};

TEST(Renderer, EveryLayoutKeepsItsColoursInPlace) {
    auto quadrants = [](int channels) {
        Picture p{64, 64, channels, {}};
        for (int i = 0; i < 64 * 64 * channels; ++i) {
            int q = i / channels / 64 / 32 * 2 + i / channels % 64 / 32, ch = i % channels;
            bool alpha = channels % 2 == 0 && ch == channels - 1;
            p.pixels.push_back(static_cast<unsigned char>(alpha ? 128 : kQuadrants[q][ch % 3]));
        }
        return p;
    };
    struct Case {
        const char* what;
        int channels;
        Bytes bytes;
    } cases[] = {
        {"JPEG", 3, encodeJPEG(quadrants(3), 95)},
        {"JPEG grey", 1, encodeJPEG(quadrants(1), 95)},
        {"JPEG CMYK, Adobe", 3, encodeCMYKJPEG(quadrants(3), 95, true)},
        {"JPEG CMYK, plain", 3, encodeCMYKJPEG(quadrants(3), 95, false)},
        {"PNG grey", 1, encodePNG(quadrants(1), {PNGLayout::kGrey, 8, false})},
        {"PNG 16-bit RGB", 3, encodePNG(quadrants(3), {PNGLayout::kRGB, 16, false})},
        {"PNG 16-bit grey, alpha, interlaced", 2,
         encodePNG(quadrants(2), {PNGLayout::kGreyAlpha, 16, true})},
        {"PNG palette with tRNS", 4, encodePNG(quadrants(4), {PNGLayout::kPalette, 8, false})},
        {"PNG RGBA, interlaced", 4, encodePNG(quadrants(4), {PNGLayout::kRGBA, 8, true})},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        // Decoded, fitted into 16 x 16, scaled, encoded.
        const int kind = c.bytes[0] == 0x89 ? kPNG : kJPEG;
        Picture out = decodePNG(GSRenderPreview(toDynaArray(c.bytes), kind, nullptr, 16, {}).png);
        ASSERT_EQ(out.channels, c.channels % 2 ? 3 : 4) << "RGB for opaque pictures, else RGBA";
        for (int q = 0; q < 4; ++q)
            for (int ch = 0; ch < out.channels; ++ch) // at the quadrant's centre
                EXPECT_NEAR(out.pixels[((q / 2 * 8 + 4) * 16 + q % 2 * 8 + 4) * out.channels + ch],
                            ch == 3 ? 128 : kQuadrants[q][c.channels < 3 ? 0 : ch], 6)
                    << "quadrant " << q << ", channel " << ch;
    }
    // The rows of every interlacing pass land where they belong, 16-bit ones too.
    Picture land = drawLandscape(61, 37, false);
    GSRasterImage interlaced, plain;
    ASSERT_EQ(decode(encodePNG(land, {PNGLayout::kRGB, 16, true}), 0, 0, 0, &interlaced), "");
    ASSERT_EQ(decode(encodePNG(land), 0, 0, 0, &plain), "");
    EXPECT_EQ(interlaced.pixels, plain.pixels);
    // Our encoder gives noise back exactly (every predictor of its row filter is chosen), opaque
    // and with fully transparent pixels, the two that straight alpha keeps exactly.
    for (bool alpha : {false, true}) {
        GSRasterImage noise{23, 17, alpha, {}};
        Bytes expected, png;
        uint32_t state = 7;
        for (int i = 0; i < 23 * 17; ++i) {
            state = state * 1103515245u + 12345u;
            const uint32_t a = alpha && state >> 30 == 0 ? 0 : 255,
                           rgb = a ? state >> 8 & 0xFFFFFF : 0;
            noise.pixels.push_back(a << 24 | rgb);
            for (int shift : {16, 8, 0, 24})
                if (shift < 24 || alpha)
                    expected.push_back(static_cast<unsigned char>((a << 24 | rgb) >> shift));
        }
        std::string error;
        ASSERT_TRUE(GSEncodePNG(noise, {}, &png, &error)) << error;
        EXPECT_EQ(decodePNG(png).pixels, expected) << (alpha ? "RGBA" : "RGB");
    }
}

TEST(Renderer, ScalingGivesTheExactSizeFlatToTheEdgesWithoutAliasing) {
    GSRasterImage board{64, 64, false, {}};
    for (int i = 0; i < 64 * 64; ++i)
        board.pixels.push_back((i / 64 + i % 64) % 2 ? 0xFFFFFFFFu : 0xFF000000u);
    // Premultiplied half-transparent orange, and an opaque one.
    const uint32_t clear = 0x80643C14u, opaque = 0xFFC87828u;
    const GSRasterImage flatClear{50, 40, true, std::vector<uint32_t>(50 * 40, clear)};
    const GSRasterImage flatOpaque{50, 40, false, std::vector<uint32_t>(50 * 40, opaque)};
    struct Case {
        const GSRasterImage& image;
        int width, height, tolerance;
        uint32_t expect; // every pixel, to within tolerance
    } cases[] = {
        // Checks average to grey by 4, 3.2 and 9.14 alike: a box covering pixels in part would
        // leave up to 5 % of the pattern (a level of 14), the sinc's lobes cancel it.
        {board, 16, 16, 2, 0xFF808080u},   {board, 20, 20, 2, 0xFF808080u},
        {board, 7, 7, 2, 0xFF808080u},     {flatClear, 173, 9, 1, clear},
        {flatClear, 9, 173, 1, clear},     {flatClear, 7, 5, 1, clear},
        {flatClear, 333, 301, 1, clear},   {flatOpaque, 173, 9, 1, opaque},
        {flatOpaque, 9, 173, 1, opaque},   {flatOpaque, 1, 1, 1, opaque},
        {flatOpaque, 333, 301, 1, opaque}, {flatOpaque, 50, 40, 0, opaque}, // the same size: a copy
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << c.expect << std::dec << " from "
                                        << c.image.width << " to " << c.width << " x " << c.height);
        GSRasterImage out;
        ASSERT_TRUE(GSScaleImage(c.image, c.width, c.height, &out));
        ASSERT_EQ(std::tuple(out.width, out.height, out.pixels.size(), out.hasAlpha),
                  std::tuple(c.width, c.height, size_t(c.width) * c.height, c.image.hasAlpha));
        for (uint32_t p : out.pixels)
            for (int shift : {0, 8, 16, c.image.hasAlpha ? 24 : 0})
                ASSERT_LE(std::abs(int(p >> shift & 255) - int(c.expect >> shift & 255)),
                          c.tolerance)
                    << "bits " << shift << " of " << std::hex << p;
        if (c.width == c.image.width) continue; // a copy does no work that a deadline stops
        GSWorkDeadline spent(0); // scaling, too, gives up once the deadline has passed
        EXPECT_FALSE(GSScaleImage(c.image, c.width, c.height, &out));
        EXPECT_TRUE(GSWorkTimedOut());
    }
}
