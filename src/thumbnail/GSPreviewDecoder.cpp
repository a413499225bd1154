// GSPreviewDecoder.cpp - JPEG through libjpeg-turbo, PNG through libpng.
#include "GSPreviewDecoder.h"

#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <jpeglib.h>
#include <jerror.h>
#include <png.h>

namespace {

constexpr bool kLittleEndian = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;

inline uint32_t argb(unsigned a, unsigned r, unsigned g, unsigned b) {
    return (a << 24) | (r << 16) | (g << 8) | b;
}

// ---------------------------------------------------------------- JPEG

struct JPEGErrorManager {
    jpeg_error_mgr pub;
    jmp_buf escape;
    char message[JMSG_LENGTH_MAX];
};

void jpegErrorExit(j_common_ptr cinfo) {
    auto* err = reinterpret_cast<JPEGErrorManager*>(cinfo->err);
    cinfo->err->format_message(cinfo, err->message);
    std::longjmp(err->escape, 1);
}

// Warnings that mean the picture is damaged (truncated or corrupt entropy data) are errors here:
// a thumbnail of half a picture filled with grey is worse than none.
void jpegEmitMessage(j_common_ptr cinfo, int level) {
    if (level >= 0) return;
    int code = cinfo->err->msg_code;
    if (code == JWRN_JPEG_EOF || code == JWRN_HUFF_BAD_CODE || code == JWRN_HIT_MARKER ||
        code == JWRN_MUST_RESYNC || code == JWRN_NOT_SEQUENTIAL)
        jpegErrorExit(cinfo);
}

void convertCMYK(const unsigned char* row, int width, bool inverted, uint32_t* out) {
    for (int x = 0; x < width; ++x, row += 4) {
        unsigned c = row[0], m = row[1], y = row[2], k = row[3];
        if (!inverted) c = 255 - c, m = 255 - m, y = 255 - y, k = 255 - k;
        out[x] = argb(255, (c * k + 127) / 255, (m * k + 127) / 255, (y * k + 127) / 255);
    }
}

// Only plain data lives in this frame: longjmp must not skip a destructor.
bool decodeJPEG(const unsigned char* bytes, long count, int targetWidth, int targetHeight,
                GSRasterImage* image, std::string* error) {
    jpeg_decompress_struct cinfo;
    JPEGErrorManager err;
    unsigned char* volatile cmykRow = nullptr; // read again after a longjmp
    cinfo.err = jpeg_std_error(&err.pub);
    err.pub.error_exit = jpegErrorExit;
    err.pub.emit_message = jpegEmitMessage;
    err.message[0] = 0;
    if (setjmp(err.escape)) {
        jpeg_destroy_decompress(&cinfo);
        delete[] cmykRow;
        *error = std::string("undecodable JPEG: ") + err.message;
        return false;
    }
    jpeg_create_decompress(&cinfo);
    cinfo.mem->max_memory_to_use = 96L * 1024 * 1024; // progressive images buffer coefficients
    jpeg_mem_src(&cinfo, bytes, static_cast<unsigned long>(count));
    jpeg_read_header(&cinfo, TRUE);
    if (cinfo.image_width == 0 || cinfo.image_height == 0 ||
        static_cast<long>(cinfo.image_width) * cinfo.image_height > kMaxDeclaredPixels) {
        jpeg_destroy_decompress(&cinfo);
        *error = "JPEG dimensions beyond the pixel budget";
        return false;
    }
    bool cmyk = cinfo.jpeg_color_space == JCS_CMYK || cinfo.jpeg_color_space == JCS_YCCK;
    cinfo.out_color_space = cmyk ? JCS_CMYK : kLittleEndian ? JCS_EXT_BGRX : JCS_EXT_XRGB;
    // The smallest scale n/8 that still covers the target, so the scaler only ever shrinks a
    // little (or enlarges a preview smaller than the thumbnail).
    cinfo.scale_denom = 8;
    for (unsigned n = 1; n <= 8; ++n) {
        cinfo.scale_num = n;
        jpeg_calc_output_dimensions(&cinfo);
        if (targetWidth <= 0 || targetHeight <= 0) continue;
        if (static_cast<int>(cinfo.output_width) >= targetWidth &&
            static_cast<int>(cinfo.output_height) >= targetHeight)
            break;
    }
    if (targetWidth <= 0 || targetHeight <= 0) {
        cinfo.scale_num = 8;
        jpeg_calc_output_dimensions(&cinfo);
    }
    long pixels = static_cast<long>(cinfo.output_width) * cinfo.output_height;
    if (pixels > kMaxDecodedPixels) {
        jpeg_destroy_decompress(&cinfo);
        *error = "JPEG too large to decode within the pixel budget";
        return false;
    }
    bool inverted = cinfo.saw_Adobe_marker; // Adobe writers store CMYK inverted
    jpeg_start_decompress(&cinfo);
    image->width = static_cast<int>(cinfo.output_width);
    image->height = static_cast<int>(cinfo.output_height);
    image->hasAlpha = false;
    image->pixels.assign(static_cast<size_t>(pixels), 0xFF000000u);
    if (cmyk) cmykRow = new unsigned char[static_cast<size_t>(image->width) * 4];
    while (cinfo.output_scanline < cinfo.output_height) {
        uint32_t* out = image->pixels.data() + static_cast<size_t>(cinfo.output_scanline) * image->width;
        JSAMPROW row = cmyk ? cmykRow : reinterpret_cast<JSAMPROW>(out);
        jpeg_read_scanlines(&cinfo, &row, 1);
        if (cmyk) convertCMYK(cmykRow, image->width, inverted, out);
    }
    if (!cmyk)
        for (uint32_t& p : image->pixels) p |= 0xFF000000u; // the X byte is not set by the codec
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    delete[] cmykRow;
    return true;
}

// ---------------------------------------------------------------- PNG

bool decodePNG(const unsigned char* bytes, long count, GSRasterImage* image, std::string* error) {
    png_image png;
    std::memset(&png, 0, sizeof png);
    png.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_memory(&png, bytes, static_cast<size_t>(count))) {
        *error = std::string("undecodable PNG: ") + png.message;
        return false;
    }
    long pixels = static_cast<long>(png.width) * png.height;
    if (png.width == 0 || png.height == 0 || pixels > kMaxDecodedPixels ||
        png.width > 0x7FFFFFF || png.height > 0x7FFFFFF) {
        png_image_free(&png);
        *error = "PNG dimensions beyond the pixel budget";
        return false;
    }
    image->hasAlpha = (png.format & PNG_FORMAT_FLAG_ALPHA) != 0;
    png.format = kLittleEndian ? PNG_FORMAT_BGRA : PNG_FORMAT_ARGB;
    // 16-bit samples without gAMA or sRGB are sRGB like 8-bit ones (libpng would assume linear
    // light and brighten the picture).
    png.flags |= PNG_IMAGE_FLAG_16BIT_sRGB;
    image->width = static_cast<int>(png.width);
    image->height = static_cast<int>(png.height);
    image->pixels.resize(static_cast<size_t>(pixels));
    if (!png_image_finish_read(&png, nullptr, image->pixels.data(), 0, nullptr)) {
        *error = std::string("undecodable PNG: ") + png.message;
        png_image_free(&png);
        return false;
    }
    if (image->hasAlpha) {
        for (uint32_t& p : image->pixels) {
            unsigned a = p >> 24;
            if (a == 255) continue;
            auto mul = [a](unsigned c) { return (c * a + 127) / 255; };
            p = argb(a, mul((p >> 16) & 255), mul((p >> 8) & 255), mul(p & 255));
        }
    }
    return true;
}

} // namespace

bool GSDecodePreview(const unsigned char* bytes, long count, int kind, int targetWidth,
                     int targetHeight, GSRasterImage* image, std::string* error) {
    if (!bytes || count < 1) {
        *error = "no image bytes";
        return false;
    }
    if (kind == 3) return decodePNG(bytes, count, image, error);
    return decodeJPEG(bytes, count, targetWidth, targetHeight, image, error);
}
