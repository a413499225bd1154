// GSLimits.cpp - the limits in force.
#include "fileformat/GSLimits.h"

#include <algorithm>

namespace {

GSLimits inForce;

} // namespace

const GSLimits& GSCurrentLimits() {
    return inForce;
}

void GSTightenLimits(const GSLimits& tighter) {
    auto take = [](auto& current, auto wanted) { current = std::min(current, wanted); };
    take(inForce.objectDepth, tighter.objectDepth);
    take(inForce.declaredPixels, tighter.declaredPixels);
    take(inForce.decodedPixels, tighter.decodedPixels);
    take(inForce.streamedWidth, tighter.streamedWidth);
    take(inForce.jpegMemory, tighter.jpegMemory);
    take(inForce.jpegScans, tighter.jpegScans);
    take(inForce.cacheEntryBytes, tighter.cacheEntryBytes);
    take(inForce.imageFileBytes, tighter.imageFileBytes);
    take(inForce.thumbnailCPUSeconds, tighter.thumbnailCPUSeconds);
    take(inForce.thumbnailAddressSpace, tighter.thumbnailAddressSpace);
    take(inForce.thumbnailSize, tighter.thumbnailSize);
}
