// SampleImages.cpp - drawing and encoding the sample pictures.
#include "SampleImages.h"

#include <algorithm>
#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <jpeglib.h>
#include <png.h>
#include <stdexcept>

namespace samples {

Picture drawLandscape(int width, int height, bool withAlpha) {
    Picture p;
    p.width = width;
    p.height = height;
    p.channels = withAlpha ? 4 : 3;
    p.pixels.resize(static_cast<size_t>(width) * height * p.channels);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            double fx = static_cast<double>(x) / width, fy = static_cast<double>(y) / height;
            double r = 90 + 120 * fy, g = 140 + 80 * fy, b = 230 - 60 * fy; // sky
            double dx = fx - 0.72, dy = fy - 0.28;
            if (dx * dx + dy * dy < 0.008) r = 250, g = 220, b = 120; // sun
            double hill = 0.62 + 0.08 * std::sin(fx * 9.0) + 0.04 * std::sin(fx * 23.0 + 1.0);
            if (fy > hill) r = 40 + 60 * fx, g = 120 - 40 * (fy - hill), b = 50; // hills
            unsigned char* px = &p.pixels[(static_cast<size_t>(y) * width + x) * p.channels];
            px[0] = static_cast<unsigned char>(std::lround(std::fmin(255.0, r)));
            px[1] = static_cast<unsigned char>(std::lround(std::fmin(255.0, g)));
            px[2] = static_cast<unsigned char>(std::lround(std::fmin(255.0, b)));
            if (withAlpha) px[3] = static_cast<unsigned char>(fx < 0.1 ? 255 * fx * 10 : 255);
        }
    }
    return p;
}

Picture drawFlat(int width, int height, const std::vector<unsigned char>& sample) {
    Picture p;
    p.width = width;
    p.height = height;
    p.channels = static_cast<int>(sample.size());
    p.pixels.reserve(static_cast<size_t>(width) * height * sample.size());
    for (long i = 0; i < static_cast<long>(width) * height; ++i)
        p.pixels.insert(p.pixels.end(), sample.begin(), sample.end());
    return p;
}

namespace {

// Compresses rows of `components` samples in `space`; fillRow(y, row) makes row y.
std::vector<unsigned char> compressJPEG(int width, int height, int components, J_COLOR_SPACE space,
                                        int quality, bool adobeMarker, bool progressive,
                                        const std::function<void(int, unsigned char*)>& fillRow) {
    jpeg_compress_struct cinfo;
    jpeg_error_mgr jerr;
    cinfo.err = jpeg_std_error(&jerr);
    jpeg_create_compress(&cinfo);
    unsigned char* out = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&cinfo, &out, &size);
    cinfo.image_width = static_cast<JDIMENSION>(width);
    cinfo.image_height = static_cast<JDIMENSION>(height);
    cinfo.input_components = components;
    cinfo.in_color_space = space;
    jpeg_set_defaults(&cinfo);
    jpeg_set_quality(&cinfo, quality, TRUE);
    cinfo.write_Adobe_marker = adobeMarker ? TRUE : FALSE;
    if (progressive) jpeg_simple_progression(&cinfo);
    jpeg_start_compress(&cinfo, TRUE);
    std::vector<unsigned char> row(static_cast<size_t>(width) * components);
    while (cinfo.next_scanline < cinfo.image_height) {
        fillRow(static_cast<int>(cinfo.next_scanline), row.data());
        JSAMPROW rows[1] = {row.data()};
        jpeg_write_scanlines(&cinfo, rows, 1);
    }
    jpeg_finish_compress(&cinfo);
    std::vector<unsigned char> bytes(out, out + size);
    jpeg_destroy_compress(&cinfo);
    std::free(out);
    return bytes;
}

const unsigned char* pixelAt(const Picture& picture, int x, int y) {
    return &picture.pixels[(static_cast<size_t>(y) * picture.width + x) * picture.channels];
}

} // namespace

std::vector<unsigned char> encodeJPEG(const Picture& picture, int quality, bool progressive) {
    bool grey = picture.channels == 1;
    return compressJPEG(picture.width, picture.height, grey ? 1 : 3, grey ? JCS_GRAYSCALE : JCS_RGB,
                        quality, false, progressive, [&](int y, unsigned char* row) {
                            for (int x = 0; x < picture.width; ++x)
                                for (int c = 0; c < (grey ? 1 : 3); ++c)
                                    *row++ = pixelAt(picture, x, y)[c];
                        });
}

std::vector<unsigned char> encodeCMYKJPEG(const Picture& picture, int quality, bool adobeInverted) {
    if (picture.channels < 3) throw std::runtime_error("CMYK needs an RGB picture");
    return compressJPEG(picture.width, picture.height, 4, JCS_CMYK, quality, adobeInverted, false,
                        [&](int y, unsigned char* row) {
                            for (int x = 0; x < picture.width; ++x, row += 4) {
                                // Inverted samples: colour = inverted C * inverted K / 255.
                                const unsigned char* px = pixelAt(picture, x, y);
                                int k = std::max({px[0], px[1], px[2]});
                                for (int c = 0; c < 3; ++c)
                                    row[c] = static_cast<unsigned char>(
                                        k ? (px[c] * 255 + k / 2) / k : 255);
                                row[3] = static_cast<unsigned char>(k);
                                if (!adobeInverted)
                                    for (int c = 0; c < 4; ++c)
                                        row[c] = static_cast<unsigned char>(255 - row[c]);
                            }
                        });
}

std::vector<unsigned char> encodePNG(const Picture& picture) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(picture.width);
    image.height = static_cast<png_uint_32>(picture.height);
    image.format = picture.channels == 4 ? PNG_FORMAT_RGBA : PNG_FORMAT_RGB;
    png_alloc_size_t size = 0;
    if (!png_image_write_to_memory(&image, nullptr, &size, 0, picture.pixels.data(), 0, nullptr))
        throw std::runtime_error("png size");
    std::vector<unsigned char> bytes(size);
    if (!png_image_write_to_memory(&image, bytes.data(), &size, 0, picture.pixels.data(), 0,
                                   nullptr))
        throw std::runtime_error("png encode");
    bytes.resize(size);
    return bytes;
}

namespace {

void appendBytes(png_structp png, png_bytep data, size_t length) {
    auto* out = static_cast<std::vector<unsigned char>*>(png_get_io_ptr(png));
    out->insert(out->end(), data, data + length);
}

void flushNothing(png_structp) {}

// libpng reports errors by longjmp: no object with a destructor lives in this frame.
bool writePNG(std::vector<unsigned char>* out, const Picture& picture, int colourType, int bitDepth,
              bool interlaced, const png_color* palette, int paletteSize, const png_byte* alpha,
              int alphaCount, png_bytepp rows) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info) {
        png_destroy_write_struct(&png, nullptr);
        return false;
    }
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return false;
    }
    png_set_write_fn(png, out, appendBytes, flushNothing);
    png_set_IHDR(png, info, static_cast<png_uint_32>(picture.width),
                 static_cast<png_uint_32>(picture.height), bitDepth, colourType,
                 interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (paletteSize > 0) png_set_PLTE(png, info, palette, paletteSize);
    if (alphaCount > 0) png_set_tRNS(png, info, alpha, alphaCount, nullptr);
    png_write_info(png, info);
    png_write_image(png, rows); // all passes when interlaced
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return true;
}

} // namespace

std::vector<unsigned char> encodePNG(const Picture& picture, const PNGLayout& layout) {
    static const int channels[] = {1, 2, 3, 4, 0};
    static const int colourTypes[] = {PNG_COLOR_TYPE_GRAY, PNG_COLOR_TYPE_GRAY_ALPHA,
                                      PNG_COLOR_TYPE_RGB, PNG_COLOR_TYPE_RGB_ALPHA,
                                      PNG_COLOR_TYPE_PALETTE};
    bool paletted = layout.colour == PNGLayout::kPalette;
    if (paletted ? picture.channels < 3 || layout.bitDepth != 8
                 : picture.channels != channels[layout.colour] ||
                       (layout.bitDepth != 8 && layout.bitDepth != 16))
        throw std::runtime_error("png layout does not fit the picture");

    int bytesPerSample = layout.bitDepth / 8;
    size_t rowBytes =
        static_cast<size_t>(picture.width) * (paletted ? 1 : picture.channels) * bytesPerSample;
    std::vector<unsigned char> data(rowBytes * picture.height);
    std::vector<png_color> palette;
    std::vector<png_byte> alpha;
    bool transparent = false;
    for (int y = 0; y < picture.height; ++y) {
        unsigned char* row = &data[rowBytes * y];
        for (int x = 0; x < picture.width; ++x) {
            const unsigned char* px = pixelAt(picture, x, y);
            if (!paletted) {
                for (int c = 0; c < picture.channels; ++c)
                    for (int b = 0; b < bytesPerSample; ++b)
                        *row++ = px[c]; // v * 257 when 16-bit
                continue;
            }
            png_byte a = picture.channels == 4 ? px[3] : 255;
            size_t i = 0;
            while (i < palette.size() && !(palette[i].red == px[0] && palette[i].green == px[1] &&
                                           palette[i].blue == px[2] && alpha[i] == a))
                ++i;
            if (i == palette.size()) {
                if (i == 256) throw std::runtime_error("more than 256 colours");
                palette.push_back({px[0], px[1], px[2]});
                alpha.push_back(a);
                transparent = transparent || a < 255;
            }
            *row++ = static_cast<unsigned char>(i);
        }
    }
    std::vector<png_bytep> rows(static_cast<size_t>(picture.height));
    for (int y = 0; y < picture.height; ++y)
        rows[y] = &data[rowBytes * y];
    std::vector<unsigned char> bytes;
    if (!writePNG(&bytes, picture, colourTypes[layout.colour], layout.bitDepth, layout.interlaced,
                  palette.data(), static_cast<int>(palette.size()), alpha.data(),
                  transparent ? static_cast<int>(alpha.size()) : 0, rows.data()))
        throw std::runtime_error("png encode");
    return bytes;
}

Picture decodePNG(const std::vector<unsigned char>& bytes) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    Picture p;
    if (bytes.empty() || !png_image_begin_read_from_memory(&image, bytes.data(), bytes.size()))
        return p;
    p.channels = image.format & PNG_FORMAT_FLAG_ALPHA ? 4 : 3;
    image.format = p.channels == 4 ? PNG_FORMAT_RGBA : PNG_FORMAT_RGB;
    p.pixels.resize(PNG_IMAGE_SIZE(image));
    if (!png_image_finish_read(&image, nullptr, p.pixels.data(), 0, nullptr)) {
        p.pixels.clear();
        return p;
    }
    p.width = static_cast<int>(image.width);
    p.height = static_cast<int>(image.height);
    return p;
}

} // namespace samples
