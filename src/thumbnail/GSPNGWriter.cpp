// GSPNGWriter.cpp - PNG encoding into memory: Paeth-filtered rows compressed in one piece by
// libdeflate, framed in PNG chunks here.
#include "thumbnail/GSPNGWriter.h"

#include <cstdlib>
#include <cstring>
#include <libdeflate.h>
#include <memory>

namespace {

// A thumbnail is a downscaled photograph: after the Paeth filter its rows are small residuals,
// and libdeflate's level 1 over the whole picture gives files within a few percent of zlib's
// level 6 in a fraction of the time (the encoder was most of a small thumbnail's run). The whole
// picture is small (at most the largest thumbnail size squared), so compressing it in one call
// costs two buffers of its size and saves zlib's streaming machinery. One fixed filter: the SUB
// filter is faster still but costs 2 to 24 % more bytes; trying every filter per row buys
// nothing on these pictures.
constexpr int kDeflateLevel = 1;
constexpr unsigned char kPaeth = 4;
// Filtered bytes of the largest picture encoded: its compressed form, which deflate may make a
// little larger, still fits one chunk (lengths below 2^31).
constexpr size_t kLargestPicture = size_t{1} << 30;

// Rows in PNG byte order, alpha no longer premultiplied.
void packRow(const uint32_t* pixels, int width, bool alpha, unsigned char* row) {
    for (int x = 0; x < width; ++x) {
        uint32_t p = pixels[x];
        unsigned a = p >> 24, r = (p >> 16) & 255, g = (p >> 8) & 255, b = p & 255;
        if (alpha) {
            if (a == 0) {
                r = g = b = 0;
            } else if (a < 255) {
                auto un = [a](unsigned c) {
                    unsigned v = (c * 255 + a / 2) / a;
                    return v > 255 ? 255u : v;
                };
                r = un(r), g = un(g), b = un(b);
            }
            row[0] = static_cast<unsigned char>(r), row[1] = static_cast<unsigned char>(g);
            row[2] = static_cast<unsigned char>(b), row[3] = static_cast<unsigned char>(a);
            row += 4;
        } else {
            row[0] = static_cast<unsigned char>(r), row[1] = static_cast<unsigned char>(g);
            row[2] = static_cast<unsigned char>(b);
            row += 3;
        }
    }
}

// out = row - Paeth(left, up, upper left), byte by byte; `up` is all zeros for the first row.
// Every predictor input is an unfiltered byte, so the loop carries no dependency and vectorises.
void paethRow(const unsigned char* row, const unsigned char* up, size_t size, int bpp,
              unsigned char* out) {
    for (size_t i = 0; i < size; ++i) {
        const int a = i >= static_cast<size_t>(bpp) ? row[i - bpp] : 0;
        const int b = up[i];
        const int c = i >= static_cast<size_t>(bpp) ? up[i - bpp] : 0;
        const int pa = std::abs(b - c), pb = std::abs(a - c), pc = std::abs(a + b - 2 * c);
        const int predicted = (pa <= pb && pa <= pc) ? a : (pb <= pc ? b : c);
        out[i] = static_cast<unsigned char>(row[i] - predicted);
    }
}

void putBig32(std::vector<unsigned char>* out, uint32_t v) {
    const unsigned char bytes[4] = {
        static_cast<unsigned char>(v >> 24), static_cast<unsigned char>(v >> 16),
        static_cast<unsigned char>(v >> 8), static_cast<unsigned char>(v)};
    out->insert(out->end(), bytes, bytes + 4);
}

// Length, type, data and the CRC of type and data.
void putChunk(std::vector<unsigned char>* out, const char type[5], const unsigned char* data,
              size_t size) {
    putBig32(out, static_cast<uint32_t>(size));
    const size_t start = out->size();
    out->insert(out->end(), type, type + 4);
    if (size > 0) out->insert(out->end(), data, data + size);
    putBig32(out, libdeflate_crc32(0, out->data() + start, size + 4));
}

// A tEXt keyword is 1 to 79 printable Latin-1 characters; neither part may hold a NUL.
bool validText(const std::pair<std::string, std::string>& entry) {
    const std::string& key = entry.first;
    if (key.empty() || key.size() > 79 || key.find('\0') != std::string::npos) return false;
    return entry.second.find('\0') == std::string::npos;
}

struct CompressorFree {
    void operator()(libdeflate_compressor* c) const { libdeflate_free_compressor(c); }
};

} // namespace

bool GSEncodePNG(const GSRasterImage& image, const GSPNGText& text, std::vector<unsigned char>* out,
                 std::string* error) {
    if (image.width < 1 || image.height < 1 ||
        image.pixels.size() != static_cast<size_t>(image.width) * image.height) {
        *error = "empty image";
        return false;
    }
    for (const auto& entry : text)
        if (!validText(entry)) {
            *error = "PNG text keys are 1 to 79 characters, without NUL";
            return false;
        }
    const int bpp = image.hasAlpha ? 4 : 3;
    const size_t stride = static_cast<size_t>(image.width) * bpp;
    if ((stride + 1) * image.height > kLargestPicture) { // one IDAT chunk holds the whole picture
        *error = "image too large to encode";
        return false;
    }
    // Two rows of packed pixels (this one and the one above) and the filtered picture.
    std::vector<unsigned char> rows(2 * stride, 0);
    std::vector<unsigned char> filtered((stride + 1) * image.height);
    for (int y = 0; y < image.height; ++y) {
        unsigned char* row = rows.data() + (y % 2) * stride;
        const unsigned char* up = rows.data() + ((y + 1) % 2) * stride; // zeros for row 0
        packRow(image.pixels.data() + static_cast<size_t>(y) * image.width, image.width,
                image.hasAlpha, row);
        unsigned char* line = filtered.data() + y * (stride + 1);
        line[0] = kPaeth;
        paethRow(row, up, stride, bpp, line + 1);
    }

    std::unique_ptr<libdeflate_compressor, CompressorFree> compressor(
        libdeflate_alloc_compressor(kDeflateLevel));
    if (!compressor) {
        *error = "out of memory";
        return false;
    }
    std::vector<unsigned char> compressed(
        libdeflate_zlib_compress_bound(compressor.get(), filtered.size()));
    const size_t compressedSize = libdeflate_zlib_compress(
        compressor.get(), filtered.data(), filtered.size(), compressed.data(), compressed.size());
    if (compressedSize == 0) { // cannot happen with a buffer of the bound's size
        *error = "PNG compression failed";
        return false;
    }

    out->clear();
    out->reserve(compressedSize + 1024);
    static const unsigned char kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    out->insert(out->end(), kSignature, kSignature + 8);
    std::vector<unsigned char> header;
    putBig32(&header, static_cast<uint32_t>(image.width));
    putBig32(&header, static_cast<uint32_t>(image.height));
    // Depth 8, RGB (2) or RGBA (6), deflate, adaptive filtering, no interlace.
    const unsigned char rest[5] = {8, static_cast<unsigned char>(image.hasAlpha ? 6 : 2), 0, 0, 0};
    header.insert(header.end(), rest, rest + 5);
    putChunk(out, "IHDR", header.data(), header.size());
    for (const auto& [key, value] : text) {
        std::vector<unsigned char> data(key.begin(), key.end());
        data.push_back(0);
        data.insert(data.end(), value.begin(), value.end());
        putChunk(out, "tEXt", data.data(), data.size());
    }
    putChunk(out, "IDAT", compressed.data(), compressedSize);
    putChunk(out, "IEND", nullptr, 0);
    return true;
}
