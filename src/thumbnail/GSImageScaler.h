// GSImageScaler.h - scales a raster image to an exact pixel size with pixman.
//
// Shrinking averages every source pixel into the destination (a box kernel sized to the scale
// on top of a box reconstruction: no aliasing, no dropped detail; at whole-number scales the box
// alone averages exactly s source pixels); enlarging interpolates bilinearly. Width and height
// scale independently, so a document whose stated size has another aspect than its picture is drawn
// as the document says. Alpha stays premultiplied throughout.
//
// Scaling goes in bands of rows and fails once the calling thread's GSWorkDeadline has passed.
#pragma once

#include "thumbnail/GSRasterImage.h"

bool GSScaleImage(const GSRasterImage& source, int width, int height, GSRasterImage* result);
