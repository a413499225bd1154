/* floor.c - the least work a thumbnailer can do: the yardstick bench/peers.sh times us against.
 *
 * Usage: floor SIZE IMAGE OUT.png
 *
 * The image (JPEG or PNG) is fitted into SIZE x SIZE by the same rule as ember-tide's thumbnail
 * (scale min(SIZE/w, SIZE/h), whole pixels rounded, at least 1) and written as an 8-bit PNG.
 * Nothing is done that a thumbnail could go without: JPEG is decoded by libjpeg-turbo straight to
 * RGB at the smallest DCT scale that still covers the target, PNG row by row through libpng
 * (never held whole); every source row is area-averaged into one row of integer sums per output
 * row and written as soon as it is complete; the PNG is deflated in one call at the fastest level
 * with the SUB row filter (libdeflate when built with -DFLOOR_LIBDEFLATE, else zlib). No checks
 * beyond what keeps this program from crashing on the bench's own images, no alpha
 * premultiplication, no colour management: a floor, not a product.
 */
#include <stdio.h> /* before jpeglib.h, which uses FILE */

#include <jpeglib.h>
#include <math.h>
#include <png.h>
#include <stdlib.h>
#include <string.h>
#include <zlib.h>
#ifdef FLOOR_LIBDEFLATE
#include <libdeflate.h>
#endif

static void die(const char* what) {
    fprintf(stderr, "floor: %s\n", what);
    exit(1);
}

/* The reduction: source rows in, output rows (with their filter byte) out. */
typedef struct {
    int srcW, srcH, outW, outH, channels;
    int* column;        /* output column of each source column */
    unsigned* sums;     /* outW * channels */
    unsigned* counts;   /* outW */
    int row, srcRow, y; /* output row being summed, source rows seen, output rows done */
    unsigned char* raw; /* outH * (1 + outW * channels): the filtered image */
} Reduction;

static void reduceInit(Reduction* r, int srcW, int srcH, int outW, int outH, int channels) {
    r->srcW = srcW, r->srcH = srcH, r->outW = outW, r->outH = outH, r->channels = channels;
    r->column = malloc(sizeof(int) * (size_t)srcW);
    for (int x = 0; x < srcW; ++x)
        r->column[x] = (int)((long)x * outW / srcW);
    r->sums = calloc((size_t)outW * channels, sizeof(unsigned));
    r->counts = calloc((size_t)outW, sizeof(unsigned));
    r->raw = malloc((size_t)outH * (1 + (size_t)outW * channels));
    r->row = r->srcRow = r->y = 0;
    if (!r->column || !r->sums || !r->counts || !r->raw) die("out of memory");
}

static void emitRow(Reduction* r) {
    const int c = r->channels, stride = 1 + r->outW * c;
    unsigned char* out = r->raw + (size_t)r->y * stride;
    out[0] = 1; /* SUB */
    unsigned char* p = out + 1;
    for (int x = 0; x < r->outW; ++x) {
        unsigned n = r->counts[x];
        for (int k = 0; k < c; ++k) /* enlarging: a column without source repeats its left one */
            p[x * c + k] = n ? (unsigned char)((r->sums[x * c + k] + n / 2) / n) : p[x * c + k - c];
    }
    for (int i = stride - 2; i >= c; --i)
        p[i] = (unsigned char)(p[i] - p[i - c]);
    memset(r->sums, 0, sizeof(unsigned) * (size_t)r->outW * c);
    memset(r->counts, 0, sizeof(unsigned) * (size_t)r->outW);
    ++r->y;
}

static void reduceRow(Reduction* r, const unsigned char* row) {
    const int c = r->channels;
    int target = (int)((long)r->srcRow * r->outH / r->srcH);
    if (target != r->row) {
        emitRow(r);
        for (; r->y < target; ++r->y) /* enlarging: rows without source repeat the last one */
            memcpy(r->raw + (size_t)r->y * (1 + r->outW * c),
                   r->raw + (size_t)(r->y - 1) * (1 + r->outW * c), 1 + (size_t)r->outW * c);
        r->row = target;
    }
    for (int x = 0; x < r->srcW; ++x) {
        int o = r->column[x];
        for (int k = 0; k < c; ++k)
            r->sums[o * c + k] += row[x * c + k];
        ++r->counts[o];
    }
    if (++r->srcRow == r->srcH)
        for (emitRow(r); r->y < r->outH; ++r->y)
            memcpy(r->raw + (size_t)r->y * (1 + r->outW * c),
                   r->raw + (size_t)(r->y - 1) * (1 + r->outW * c), 1 + (size_t)r->outW * c);
}

static void fit(int w, int h, int size, int* outW, int* outH) {
    double sw = (double)size / w, sh = (double)size / h, s = sw < sh ? sw : sh;
    *outW = (int)lround(s * w), *outH = (int)lround(s * h);
    if (*outW < 1) *outW = 1;
    if (*outH < 1) *outH = 1;
}

static void decodeJPEG(const unsigned char* bytes, size_t count, int size, Reduction* r) {
    struct jpeg_decompress_struct cinfo;
    struct jpeg_error_mgr err;
    cinfo.err = jpeg_std_error(&err);
    jpeg_create_decompress(&cinfo);
    jpeg_mem_src(&cinfo, bytes, (unsigned long)count);
    jpeg_read_header(&cinfo, TRUE);
    int outW, outH;
    fit((int)cinfo.image_width, (int)cinfo.image_height, size, &outW, &outH);
    cinfo.out_color_space = JCS_RGB;
    cinfo.scale_denom = 8;
    for (cinfo.scale_num = 1; cinfo.scale_num < 8; ++cinfo.scale_num) {
        jpeg_calc_output_dimensions(&cinfo);
        if ((int)cinfo.output_width >= outW && (int)cinfo.output_height >= outH) break;
    }
    jpeg_start_decompress(&cinfo);
    reduceInit(r, (int)cinfo.output_width, (int)cinfo.output_height, outW, outH, 3);
    JSAMPROW row = malloc((size_t)cinfo.output_width * 3);
    while (cinfo.output_scanline < cinfo.output_height) {
        jpeg_read_scanlines(&cinfo, &row, 1);
        reduceRow(r, row);
    }
    free(row);
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
}

static void decodePNG(FILE* in, int size, Reduction* r) {
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, NULL, NULL, NULL);
    png_infop info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png))) die("undecodable PNG");
    png_init_io(png, in);
    png_read_info(png, info);
    if (png_get_interlace_type(png, info) != PNG_INTERLACE_NONE) die("interlaced PNG");
    png_set_expand(png);
    png_set_strip_16(png);
    png_set_gray_to_rgb(png);
    png_read_update_info(png, info);
    int w = (int)png_get_image_width(png, info), h = (int)png_get_image_height(png, info);
    int channels = png_get_channels(png, info), outW, outH;
    fit(w, h, size, &outW, &outH);
    reduceInit(r, w, h, outW, outH, channels);
    png_bytep row = malloc(png_get_rowbytes(png, info));
    for (int y = 0; y < h; ++y) {
        png_read_row(png, row, NULL);
        reduceRow(r, row);
    }
    free(row);
    png_destroy_read_struct(&png, &info, NULL);
}

static void putChunk(FILE* out, const char* type, const unsigned char* data, size_t length) {
    unsigned char head[8] = {(unsigned char)(length >> 24), (unsigned char)(length >> 16),
                             (unsigned char)(length >> 8), (unsigned char)length};
    memcpy(head + 4, type, 4);
    uLong crc = crc32(crc32(0, head + 4, 4), data, (uInt)length);
    unsigned char tail[4] = {(unsigned char)(crc >> 24), (unsigned char)(crc >> 16),
                             (unsigned char)(crc >> 8), (unsigned char)crc};
    fwrite(head, 1, 8, out);
    fwrite(data, 1, length, out);
    fwrite(tail, 1, 4, out);
}

static void writePNG(const Reduction* r, FILE* out) {
    size_t rawSize = (size_t)r->outH * (1 + (size_t)r->outW * r->channels), packed;
    unsigned char* z;
#ifdef FLOOR_LIBDEFLATE
    struct libdeflate_compressor* c = libdeflate_alloc_compressor(1);
    z = malloc(libdeflate_zlib_compress_bound(c, rawSize));
    packed =
        libdeflate_zlib_compress(c, r->raw, rawSize, z, libdeflate_zlib_compress_bound(c, rawSize));
    libdeflate_free_compressor(c);
#else
    uLongf bound = compressBound((uLong)rawSize);
    z = malloc(bound);
    if (compress2(z, &bound, r->raw, (uLong)rawSize, 1) != Z_OK) die("deflate failed");
    packed = bound;
#endif
    unsigned char ihdr[13] = {(unsigned char)(r->outW >> 24),
                              (unsigned char)(r->outW >> 16),
                              (unsigned char)(r->outW >> 8),
                              (unsigned char)r->outW,
                              (unsigned char)(r->outH >> 24),
                              (unsigned char)(r->outH >> 16),
                              (unsigned char)(r->outH >> 8),
                              (unsigned char)r->outH,
                              8,
                              r->channels == 4   ? 6
                              : r->channels == 3 ? 2
                              : r->channels == 2 ? 4
                                                 : 0,
                              0,
                              0,
                              0};
    fwrite("\x89PNG\r\n\x1a\n", 1, 8, out);
    putChunk(out, "IHDR", ihdr, 13);
    putChunk(out, "IDAT", z, packed);
    putChunk(out, "IEND", NULL, 0);
    free(z);
}

int main(int argc, char** argv) {
    if (argc != 4) die("usage: floor SIZE IMAGE OUT.png");
    int size = atoi(argv[1]);
    FILE* in = fopen(argv[2], "rb");
    if (size < 1 || !in) die("cannot read the image");
    Reduction r;
    unsigned char signature[8];
    if (fread(signature, 1, 8, in) != 8) die("short image");
    if (signature[0] == 0x89) {
        rewind(in);
        decodePNG(in, size, &r);
    } else {
        fseek(in, 0, SEEK_END);
        size_t count = (size_t)ftell(in);
        unsigned char* bytes = malloc(count);
        rewind(in);
        if (fread(bytes, 1, count, in) != count) die("short image");
        decodeJPEG(bytes, count, size, &r);
        free(bytes);
    }
    fclose(in);
    FILE* out = fopen(argv[3], "wb");
    if (!out) die("cannot write OUT");
    writePNG(&r, out);
    return fclose(out) == 0 ? 0 : 1;
}
