// CacheProgress.cpp - drawing the progress line of `ember-tide cache`.
#include "CacheProgress.h"

#include <cstdio>
#include <string>

namespace tool {

namespace {

// "m:ss", or "h:mm:ss" from an hour on.
std::string clockText(double seconds) {
    long s = static_cast<long>(seconds + 0.5);
    char text[32];
    if (s >= 3600)
        std::snprintf(text, sizeof text, "%ld:%02ld:%02ld", s / 3600, s / 60 % 60, s % 60);
    else
        std::snprintf(text, sizeof text, "%ld:%02ld", s / 60, s % 60);
    return text;
}

} // namespace

void drawProgress(long done, long total, double seconds, bool last) {
    double rate = seconds > 0 ? static_cast<double>(done) / seconds : 0;
    std::string left = last       ? "in " + clockText(seconds)
                       : rate > 0 ? clockText(static_cast<double>(total - done) / rate) + " left"
                                  : "--:-- left";
    std::fprintf(stderr, "\r\033[K%ld/%ld files  %.1f files/s  %s", done, total, rate,
                 left.c_str());
    std::fflush(stderr);
}

} // namespace tool
