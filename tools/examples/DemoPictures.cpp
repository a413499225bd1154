// DemoPictures.cpp - drawing the sample documents' pictures.
#include "DemoPictures.h"

#include <algorithm>
#include <cmath>

namespace samples {

namespace {

struct Colour {
    double r, g, b;
};

Colour mix(Colour a, Colour b, double t) {
    t = std::clamp(t, 0.0, 1.0);
    return {a.r + (b.r - a.r) * t, a.g + (b.g - a.g) * t, a.b + (b.b - a.b) * t};
}

// How much of a pixel lies inside an edge at signed distance d (pixels, negative inside).
double cover(double d) {
    return std::clamp(0.5 - d, 0.0, 1.0);
}

unsigned char level(double v) {
    return static_cast<unsigned char>(std::lround(std::clamp(v, 0.0, 255.0)));
}

// Fills every pixel from shade(x, y) in pixel units, alpha from its fourth value when RGBA.
template <typename Shade> Picture paint(int width, int height, int channels, Shade shade) {
    Picture p;
    p.width = width;
    p.height = height;
    p.channels = channels;
    p.pixels.resize(static_cast<size_t>(width) * height * channels);
    unsigned char* px = p.pixels.data();
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x, px += channels) {
            double alpha = 1.0;
            Colour c = shade(x + 0.5, y + 0.5, &alpha);
            px[0] = level(c.r), px[1] = level(c.g), px[2] = level(c.b);
            if (channels == 4) px[3] = level(alpha * 255);
        }
    return p;
}

} // namespace

Picture drawSunset(int width, int height) {
    const double horizon = height * 0.62, sunX = width * 0.5, sunR = height * 0.16;
    const Colour zenith{48, 30, 96}, glow{250, 120, 60}, sun{255, 214, 110}, sea{30, 40, 80};
    return paint(width, height, 3, [&](double x, double y, double*) {
        if (y < horizon) {
            Colour sky = mix(zenith, glow, std::pow(y / horizon, 1.6));
            double d = std::hypot(x - sunX, y - horizon) - sunR;
            sky = mix(sky, {255, 170, 90}, 0.5 * std::exp(-std::max(d, 0.0) / (sunR * 0.6)));
            sky = mix(sky, sun, cover(d));
            // A dark headland on the left, in silhouette against the sky.
            double land = horizon - height * 0.14 * (1.0 - x / (width * 0.3));
            return mix(sky, {25, 15, 35}, cover(land - y));
        }
        // The sea: darker with depth, with the sun's broken reflection in a narrowing column.
        double depth = (y - horizon) / (height - horizon);
        Colour water = mix(mix(glow, sea, 0.55), sea, depth * 1.5);
        double half = sunR * (1.0 - 0.6 * depth);
        bool glint = std::fabs(x - sunX) < half && std::fmod(y - horizon, 7.0) < 3.0 - 2.0 * depth;
        return glint ? mix(water, sun, 0.8 - depth * 0.5) : water;
    });
}

Picture drawLighthouse(int width, int height) {
    const double cx = width * 0.5, base = height * 0.82, top = height * 0.28;
    const double halfBase = width * 0.16, halfTop = width * 0.10, lampTop = top - height * 0.08;
    const Colour dusk{20, 28, 70}, low{90, 70, 120}, white{235, 235, 230}, red{200, 40, 40};
    const Colour lamp{255, 230, 120}, rock{45, 40, 45}, sea{25, 50, 90};
    return paint(width, height, 3, [&](double x, double y, double*) {
        Colour c = mix(dusk, low, y / base);
        // The beams: a wedge to each side of the lamp, fading with distance.
        double ly = (top + lampTop) / 2, dx = std::fabs(x - cx), spread = std::fabs(y - ly);
        if (dx > halfTop && spread < dx * 0.18)
            c = mix(c, lamp, 0.55 * (1.0 - spread / (dx * 0.18)) * std::exp(-dx / width));
        if (y > base) {
            c = mix(sea, rock, cover(std::fabs(x - cx) - halfBase * 1.4 - (y - base) * 1.5));
        } else if (y > top) {
            double half = halfTop + (halfBase - halfTop) * (y - top) / (base - top);
            bool redBand = static_cast<int>((y - top) / ((base - top) / 5)) % 2 == 1;
            c = mix(c, redBand ? red : white, cover(std::fabs(x - cx) - half));
        } else if (y > lampTop) {
            c = mix(c, lamp, cover(std::fabs(x - cx) - halfTop * 0.8));
        } else if (y > lampTop - height * 0.04) {
            double roof = halfTop * (y - (lampTop - height * 0.04)) / (height * 0.04) * 1.2;
            c = mix(c, {60, 30, 30}, cover(std::fabs(x - cx) - roof));
        }
        return c;
    });
}

Picture drawTranslucentDisc(int width, int height) {
    const double cx = width * 0.5, cy = height * 0.5, r = std::min(width, height) * 0.42;
    const Colour inner{120, 220, 255}, outer{20, 90, 200};
    return paint(width, height, 4, [&](double x, double y, double* alpha) {
        double d = std::hypot(x - cx, y - cy);
        // Half see-through inside, an opaque rim, nothing at all outside.
        double rim = cover(std::fabs(d - r) - 2.0);
        *alpha = std::max(0.55 * cover(d - r), rim);
        return mix(mix(inner, outer, d / r), {10, 40, 110}, rim);
    });
}

} // namespace samples
