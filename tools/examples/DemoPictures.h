// DemoPictures.h - the pictures of the sample documents: one subject each, told apart at a glance.
//
// A sunset over the sea (landscape), a lighthouse at dusk (portrait) and a translucent disc on a
// fully transparent background, so that a contact sheet of the samples shows at once which
// document gave which thumbnail and that transparency survives. Drawn from arithmetic with
// anti-aliased edges; the tests keep their own pictures (SampleImages.h).
#pragma once

#include "SampleImages.h"

namespace samples {

Picture drawSunset(int width, int height);     // RGB
Picture drawLighthouse(int width, int height); // RGB
// RGBA: the disc is partly transparent, everything around it wholly so.
Picture drawTranslucentDisc(int width, int height);

} // namespace samples
