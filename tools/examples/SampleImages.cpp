// SampleImages.cpp - drawing and encoding the sample pictures.
#include "SampleImages.h"

#include <cmath>
#include <cstdio>
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

std::vector<unsigned char> encodeJPEG(const Picture& picture, int quality) {
    jpeg_compress_struct cinfo;
    jpeg_error_mgr jerr;
    cinfo.err = jpeg_std_error(&jerr);
    jpeg_create_compress(&cinfo);
    unsigned char* out = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&cinfo, &out, &size);
    cinfo.image_width = static_cast<JDIMENSION>(picture.width);
    cinfo.image_height = static_cast<JDIMENSION>(picture.height);
    cinfo.input_components = 3;
    cinfo.in_color_space = JCS_RGB;
    jpeg_set_defaults(&cinfo);
    jpeg_set_quality(&cinfo, quality, TRUE);
    jpeg_start_compress(&cinfo, TRUE);
    std::vector<unsigned char> row(static_cast<size_t>(picture.width) * 3);
    while (cinfo.next_scanline < cinfo.image_height) {
        const unsigned char* src =
            &picture.pixels[static_cast<size_t>(cinfo.next_scanline) * picture.width * picture.channels];
        for (int x = 0; x < picture.width; ++x)
            for (int c = 0; c < 3; ++c) row[x * 3 + c] = src[x * picture.channels + c];
        JSAMPROW rows[1] = {row.data()};
        jpeg_write_scanlines(&cinfo, rows, 1);
    }
    jpeg_finish_compress(&cinfo);
    std::vector<unsigned char> bytes(out, out + size);
    jpeg_destroy_compress(&cinfo);
    std::free(out);
    return bytes;
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
    if (!png_image_write_to_memory(&image, bytes.data(), &size, 0, picture.pixels.data(), 0, nullptr))
        throw std::runtime_error("png encode");
    bytes.resize(size);
    return bytes;
}

} // namespace samples
