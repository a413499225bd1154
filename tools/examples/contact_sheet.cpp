// contact_sheet.cpp - lays PNG thumbnails out in a grid, each above its name, as one PNG.
//
// Usage: contact-sheet OUT THUMBNAIL.png...
// Cells are as large as the largest thumbnail, four to a row, in the order given; a thumbnail
// stands centred on its name. A thumbnail that does not exist (its document gave none: a
// selection, no preview) gets an empty dashed frame, so that the sheet shows every document.
// Transparent thumbnails are laid over a checkerboard, the usual sign that the background is not
// part of the picture. The sheet is opaque and written by the thumbnailer's own PNG encoder.
#include "SampleImages.h"
#include "TinyFont.h"
#include "storage/GSAtomicFile.h"
#include "thumbnail/GSPNGWriter.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr int kColumns = 4;
constexpr int kMargin = 16;
constexpr int kLabelGap = 6;
constexpr uint32_t kBackground = 0xFFF2F2F2, kFrame = 0xFF9A9A9A, kText = 0xFF303030;
constexpr uint32_t kCheckLight = 0xFFFFFFFF, kCheckDark = 0xFFD6D6D6;

struct Cell {
    std::string label;
    std::optional<samples::Picture> picture; // none: the document gave no thumbnail
};

void put(GSRasterImage* sheet, int x, int y, uint32_t argb) {
    sheet->pixels[static_cast<size_t>(y) * sheet->width + x] = argb;
}

// Straight-alpha RGB(A) over the checkerboard, blended per channel.
void drawPicture(GSRasterImage* sheet, int left, int top, const samples::Picture& p) {
    for (int y = 0; y < p.height; ++y)
        for (int x = 0; x < p.width; ++x) {
            const unsigned char* px =
                &p.pixels[(static_cast<size_t>(y) * p.width + x) * p.channels];
            unsigned a = p.channels == 4 ? px[3] : 255;
            uint32_t under = (x / 8 + y / 8) % 2 ? kCheckDark : kCheckLight, out = 0xFF000000;
            for (int c = 0; c < 3; ++c) {
                unsigned back = under >> (16 - 8 * c) & 0xFF;
                out |= ((px[c] * a + back * (255 - a) + 127) / 255) << (16 - 8 * c);
            }
            put(sheet, left + x, top + y, out);
        }
}

void drawDashedFrame(GSRasterImage* sheet, int left, int top, int size) {
    for (int i = 0; i < size; ++i) {
        if (i / 6 % 2) continue;
        put(sheet, left + i, top, kFrame);
        put(sheet, left + i, top + size - 1, kFrame);
        put(sheet, left, top + i, kFrame);
        put(sheet, left + size - 1, top + i, kFrame);
    }
}

std::optional<Cell> readCell(const std::string& path) {
    Cell cell{std::filesystem::path(path).stem().string(), std::nullopt};
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        if (errno == ENOENT) return cell;
        std::fprintf(stderr, "contact-sheet: %s: %s\n", path.c_str(), GSErrorText(errno).c_str());
        return std::nullopt;
    }
    samples::Picture picture =
        samples::decodePNG(std::vector<unsigned char>(std::istreambuf_iterator<char>(in), {}));
    if (picture.width == 0) {
        std::fprintf(stderr, "contact-sheet: %s: not a PNG\n", path.c_str());
        return std::nullopt;
    }
    cell.picture = std::move(picture);
    return cell;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "Usage: contact-sheet OUT THUMBNAIL.png...\n");
        return 2;
    }
    std::vector<Cell> cells;
    int size = 64;
    for (int i = 2; i < argc; ++i) {
        std::optional<Cell> cell = readCell(argv[i]);
        if (!cell) return 1;
        if (cell->picture) size = std::max({size, cell->picture->width, cell->picture->height});
        cells.push_back(std::move(*cell));
    }
    const int columns = std::min(kColumns, static_cast<int>(cells.size()));
    const int rows = (static_cast<int>(cells.size()) + columns - 1) / columns;
    const int pitchX = size + kMargin, pitchY = size + kLabelGap + kTinyFontHeight + kMargin;
    GSRasterImage sheet;
    sheet.width = kMargin + columns * pitchX;
    sheet.height = kMargin + rows * pitchY;
    sheet.pixels.assign(static_cast<size_t>(sheet.width) * sheet.height, kBackground);
    for (size_t i = 0; i < cells.size(); ++i) {
        const int left = kMargin + static_cast<int>(i) % columns * pitchX;
        const int top = kMargin + static_cast<int>(i) / columns * pitchY;
        if (const auto& p = cells[i].picture)
            drawPicture(&sheet, left + (size - p->width) / 2, top + size - p->height, *p);
        else
            drawDashedFrame(&sheet, left, top, size);
        const int textWidth = static_cast<int>(cells[i].label.size()) * kTinyFontAdvance - 1;
        drawTinyText(&sheet, left + (size - textWidth) / 2, top + size + kLabelGap, cells[i].label,
                     kText);
    }
    std::vector<unsigned char> png;
    std::string error;
    if (!GSEncodePNG(std::move(sheet), {}, &png, &error) ||
        !(error = GSWriteFileAtomically(argv[1], png.data(), png.size())).empty()) {
        std::fprintf(stderr, "contact-sheet: %s: %s\n", argv[1], error.c_str());
        return 1;
    }
    return 0;
}
