// GSTSize.h - a width and a height.
#pragma once

template <class T> struct GSTSize {
    T width = 0;
    T height = 0;

    bool operator==(const GSTSize&) const = default;
};
