// GSPreviewDecoder.cpp - JPEG through libjpeg-turbo, PNG through libpng.
#include "thumbnail/GSPreviewDecoder.h"

#include "fileformat/GSLimits.h"
#include "thumbnail/GSDecodedRows.h"
#include "thumbnail/GSWorkDeadline.h"

#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <jerror.h>
#include <jpeglib.h>
#include <png.h>

namespace {

constexpr bool kLittleEndian = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;

inline uint32_t argb(unsigned a, unsigned r, unsigned g, unsigned b) {
    return (a << 24) | (r << 16) | (g << 8) | b;
}

// ---------------------------------------------------------------- JPEG

// The callbacks below leave through longjmp, across libjpeg's frames and their own: they hold
// no C++ object, and write what the caller is told into `message`.
struct JPEGErrorManager {
    jpeg_error_mgr pub;
    jmp_buf escape;
    char message[JMSG_LENGTH_MAX + 64];
};

[[noreturn]] void jpegEscape(j_common_ptr cinfo) {
    std::longjmp(reinterpret_cast<JPEGErrorManager*>(cinfo->err)->escape, 1);
}

void jpegErrorExit(j_common_ptr cinfo) {
    auto* err = reinterpret_cast<JPEGErrorManager*>(cinfo->err);
    char text[JMSG_LENGTH_MAX];
    cinfo->err->format_message(cinfo, text);
    // libjpeg asks for a temporary file once the coefficients outgrow max_memory_to_use.
    if (cinfo->err->msg_code == JERR_NO_BACKING_STORE)
        std::snprintf(err->message, sizeof err->message,
                      "JPEG too large for the memory budget (its coefficients need more than "
                      "%ld MiB)",
                      GSCurrentLimits().jpegMemory >> 20);
    else
        std::snprintf(err->message, sizeof err->message, "undecodable JPEG: %s", text);
    jpegEscape(cinfo);
}

// Warnings that mean the picture is damaged (entropy data cut short or corrupt) are errors here:
// a thumbnail of half a picture filled with grey is worse than none. A missing end-of-image
// marker alone (JWRN_JPEG_EOF, with every scan whole) loses nothing, and is shown as other
// viewers show it.
void jpegEmitMessage(j_common_ptr cinfo, int level) {
    if (level >= 0) return;
    int code = cinfo->err->msg_code;
    if (code == JWRN_HUFF_BAD_CODE || code == JWRN_HIT_MARKER || code == JWRN_MUST_RESYNC ||
        code == JWRN_NOT_SEQUENTIAL)
        jpegErrorExit(cinfo);
}

// Called once per row of blocks while the scans are read, and once per row of output.
void jpegProgress(j_common_ptr cinfo) {
    auto* d = reinterpret_cast<j_decompress_ptr>(cinfo);
    auto* err = reinterpret_cast<JPEGErrorManager*>(cinfo->err);
    if (d->input_scan_number > GSCurrentLimits().jpegScans)
        std::snprintf(err->message, sizeof err->message, "JPEG of more than %d scans refused",
                      GSCurrentLimits().jpegScans);
    else if (GSWorkTimeUp(static_cast<long>(d->image_width)))
        std::snprintf(err->message, sizeof err->message, "JPEG decoding took too long");
    else
        return;
    jpegEscape(cinfo);
}

void convertCMYK(const unsigned char* row, int width, bool inverted, uint32_t* out) {
    for (int x = 0; x < width; ++x, row += 4) {
        unsigned c = row[0], m = row[1], y = row[2], k = row[3];
        if (!inverted) c = 255 - c, m = 255 - m, y = 255 - y, k = 255 - k;
        out[x] = argb(255, (c * k + 127) / 255, (m * k + 127) / 255, (y * k + 127) / 255);
    }
}

// The JPEG's DCT scale leaves at least 2 pixels for every thumbnail pixel on each axis (or the
// picture's own size, when it has fewer), so that the scaler's Lanczos filter, not the DCT's
// reduced transforms over blocks, decides the picture's sharpness. A margin of 1.5 saves up to a
// quarter of the decoding time of large JPEGs and held 45 dB of PSNR (against a Lanczos resize of
// the whole picture) on the benchmark's two photographs, but on the fifteen photographs of the
// wallpaper package it left 13 of 45 thumbnails (128, 256, 512) below 45 dB, down to 31 dB, where
// a margin of 2 leaves 5 (fine-patterned pictures that only decoding at full size keeps sharp).
constexpr long kDecodeMarginNum = 2, kDecodeMarginDen = 1;

// Only plain data lives in this frame: longjmp must not skip a destructor. `rows` owns every
// buffer.
bool decodeJPEG(const unsigned char* bytes, long count, int targetWidth, int targetHeight,
                GSDecodedRows* rows, std::string* error) {
    jpeg_decompress_struct cinfo;
    JPEGErrorManager err;
    jpeg_progress_mgr progress{};
    cinfo.err = jpeg_std_error(&err.pub);
    err.pub.error_exit = jpegErrorExit;
    err.pub.emit_message = jpegEmitMessage;
    err.message[0] = 0;
    progress.progress_monitor = jpegProgress;
    if (setjmp(err.escape)) {
        jpeg_destroy_decompress(&cinfo);
        *error = err.message;
        return false;
    }
    jpeg_create_decompress(&cinfo);
    cinfo.mem->max_memory_to_use = GSCurrentLimits().jpegMemory;
    cinfo.progress = &progress;
    jpeg_mem_src(&cinfo, bytes, static_cast<unsigned long>(count));
    jpeg_read_header(&cinfo, TRUE);
    if (cinfo.image_width == 0 || cinfo.image_height == 0 ||
        static_cast<long>(cinfo.image_width) * cinfo.image_height >
            GSCurrentLimits().declaredPixels) {
        jpeg_destroy_decompress(&cinfo);
        *error = "JPEG dimensions beyond the pixel budget";
        return false;
    }
    bool cmyk = cinfo.jpeg_color_space == JCS_CMYK || cinfo.jpeg_color_space == JCS_YCCK;
    // The codec fills the alpha byte of these layouts with 255 itself.
    cinfo.out_color_space = cmyk ? JCS_CMYK : kLittleEndian ? JCS_EXT_BGRA : JCS_EXT_ARGB;
    // The smallest scale n/8 that leaves the margin over the target (8/8 when none does).
    const bool scaled = targetWidth > 0 && targetHeight > 0;
    cinfo.scale_denom = 8;
    for (unsigned n = 1; n <= 8; ++n) {
        cinfo.scale_num = n;
        jpeg_calc_output_dimensions(&cinfo);
        if (scaled && kDecodeMarginDen * cinfo.output_width >= kDecodeMarginNum * targetWidth &&
            kDecodeMarginDen * cinfo.output_height >= kDecodeMarginNum * targetHeight)
            break;
    }
    long pixels = static_cast<long>(cinfo.output_width) * cinfo.output_height;
    if (pixels > GSCurrentLimits().decodedPixels) {
        jpeg_destroy_decompress(&cinfo);
        *error = "JPEG too large to decode within the pixel budget";
        return false;
    }
    bool inverted = cinfo.saw_Adobe_marker; // Adobe writers store CMYK inverted
    jpeg_start_decompress(&cinfo);
    const int width = static_cast<int>(cinfo.output_width);
    rows->start(width, static_cast<int>(cinfo.output_height), false, true);
    if (cmyk) rows->scratch.resize(static_cast<size_t>(width) * 4);
    while (cinfo.output_scanline < cinfo.output_height) {
        uint32_t* out = rows->row(static_cast<int>(cinfo.output_scanline));
        JSAMPROW row = cmyk ? rows->scratch.data() : reinterpret_cast<JSAMPROW>(out);
        jpeg_read_scanlines(&cinfo, &row, 1);
        if (cmyk) convertCMYK(rows->scratch.data(), width, inverted, out);
        if (!rows->done()) {
            jpeg_destroy_decompress(&cinfo);
            *error = "JPEG decoding took too long";
            return false;
        }
    }
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    return true;
}

// ---------------------------------------------------------------- PNG

// libpng's row-by-row reader, so that the loop over the rows can watch the deadline. Its error
// callback leaves through longjmp, as the JPEG ones do: no C++ object lives in those frames.
struct PNGSource {
    const unsigned char* bytes;
    size_t count;
    size_t at;
    char message[128];
};

[[noreturn]] void pngError(png_structp png, png_const_charp what) {
    auto* source = static_cast<PNGSource*>(png_get_error_ptr(png));
    std::snprintf(source->message, sizeof source->message, "undecodable PNG: %s", what);
    png_longjmp(png, 1);
}

void pngWarning(png_structp, png_const_charp) {} // ancillary chunks that are ignored

void pngRead(png_structp png, png_bytep data, size_t length) {
    auto* source = static_cast<PNGSource*>(png_get_io_ptr(png));
    if (length > source->count - source->at) png_error(png, "the data ends too soon");
    std::memcpy(data, source->bytes + source->at, length);
    source->at += length;
}

// Only plain data lives in this frame: longjmp must not skip a destructor. `rows` owns every
// buffer.
bool decodePNG(const unsigned char* bytes, long count, GSDecodedRows* rows, std::string* error) {
    PNGSource source{bytes, static_cast<size_t>(count), 0, {}};
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &source, pngError, pngWarning);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info) {
        png_destroy_read_struct(&png, nullptr, nullptr);
        *error = "out of memory";
        return false;
    }
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_read_struct(&png, &info, nullptr);
        *error = source.message;
        return false;
    }
    png_set_read_fn(png, &source, pngRead);
    png_read_info(png, info);
    const png_uint_32 width = png_get_image_width(png, info);
    const png_uint_32 height = png_get_image_height(png, info);
    const long pixels = static_cast<long>(width) * height;
    const bool onePass = png_get_interlace_type(png, info) == PNG_INTERLACE_NONE;
    if (width == 0 || height == 0 ||
        (rows->streams(onePass)
             ? width > static_cast<png_uint_32>(GSCurrentLimits().streamedWidth) ||
                   pixels > GSCurrentLimits().declaredPixels
             : pixels > GSCurrentLimits().decodedPixels)) {
        png_destroy_read_struct(&png, &info, nullptr);
        *error = "PNG dimensions beyond the pixel budget";
        return false;
    }
    // Every colour type and depth becomes 8-bit samples in the order of a native ARGB word.
    const int colourType = png_get_color_type(png, info);
    const bool hasAlpha =
        (colourType & PNG_COLOR_MASK_ALPHA) != 0 || png_get_valid(png, info, PNG_INFO_tRNS) != 0;
    png_set_expand(png); // palettes, grey below 8 bits, tRNS as alpha
    // Samples without gAMA or sRGB are sRGB, 16-bit ones too (libpng would take those for
    // linear light and brighten the picture); a stated gamma is converted to sRGB.
    png_set_alpha_mode(png, PNG_ALPHA_PNG, PNG_DEFAULT_sRGB);
    png_set_scale_16(png);
    if ((colourType & PNG_COLOR_MASK_COLOR) == 0) png_set_gray_to_rgb(png);
    if (kLittleEndian) png_set_bgr(png);
    if (!hasAlpha)
        png_set_add_alpha(png, 0xFF, kLittleEndian ? PNG_FILLER_AFTER : PNG_FILLER_BEFORE);
    else if (!kLittleEndian)
        png_set_swap_alpha(png);
    const int passes = png_set_interlace_handling(png);
    png_read_update_info(png, info);
    if (png_get_rowbytes(png, info) != static_cast<size_t>(width) * 4)
        png_error(png, "unexpected row layout");
    rows->start(static_cast<int>(width), static_cast<int>(height), hasAlpha, onePass);
    // Interlaced pictures come in passes over the same rows, each adding its pixels.
    for (int pass = 0; pass < passes; ++pass)
        for (png_uint_32 y = 0; y < height; ++y) {
            if (GSWorkTimeUp(static_cast<long>(width))) {
                std::snprintf(source.message, sizeof source.message, "PNG decoding took too long");
                png_longjmp(png, 1);
            }
            png_read_row(png, reinterpret_cast<png_bytep>(rows->row(static_cast<int>(y))), nullptr);
            if (!rows->done()) {
                std::snprintf(source.message, sizeof source.message, "PNG decoding took too long");
                png_longjmp(png, 1);
            }
        }
    png_destroy_read_struct(&png, &info, nullptr);
    return true;
}

} // namespace

bool GSDecodePreview(const unsigned char* bytes, long count, int kind, int targetWidth,
                     int targetHeight, GSRasterImage* image, std::string* error) {
    if (!bytes || count < 1) {
        *error = "no image bytes";
        return false;
    }
    GSDecodedRows rows(targetWidth, targetHeight);
    if (!(kind == 3 ? decodePNG(bytes, count, &rows, error)
                    : decodeJPEG(bytes, count, targetWidth, targetHeight, &rows, error)))
        return false;
    if (rows.finish(image)) return true;
    *error = "scaling took too long";
    return false;
}
