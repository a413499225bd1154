// TinyFont.h - file names drawn into a picture without a font library.
//
// A 5x7 pixel font (nine rows with descenders) of the characters sample file names use (lower-case
// letters, digits, '-',
// '.', '_'; capitals are drawn as lower case, anything else as a space), one pixel apart.
#pragma once

#include "thumbnail/GSRasterImage.h"

#include <cstdint>
#include <string>

constexpr int kTinyFontHeight = 9;
constexpr int kTinyFontAdvance = 6;

// Draws `text` with its top left corner at (x, y) in `colour` (native ARGB); pixels beyond
// the image's edges are left out.
void drawTinyText(GSRasterImage* image, int x, int y, const std::string& text, uint32_t colour);
