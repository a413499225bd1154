// CoreGraphics.h - the CoreGraphics items our Apple sources use, declared as Apple's SDK
// declares them (64-bit), for the Linux syntax check only (syntax-check.sh). Never used by a
// build.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <stddef.h>
#include <stdint.h>

extern "C" {

typedef double CGFloat; // the same type GNUstep's Foundation gives it

struct CGPoint {
    CGFloat x;
    CGFloat y;
};
typedef struct CGPoint CGPoint;

struct CGSize {
    CGFloat width;
    CGFloat height;
};
typedef struct CGSize CGSize;

struct CGRect {
    CGPoint origin;
    CGSize size;
};
typedef struct CGRect CGRect;

static inline CGSize CGSizeMake(CGFloat width, CGFloat height) {
    CGSize size;
    size.width = width;
    size.height = height;
    return size;
}

static inline CGRect CGRectMake(CGFloat x, CGFloat y, CGFloat width, CGFloat height) {
    CGRect rect;
    rect.origin.x = x;
    rect.origin.y = y;
    rect.size.width = width;
    rect.size.height = height;
    return rect;
}

typedef struct CGContext* CGContextRef;
typedef struct CGImage* CGImageRef;
typedef struct CGDataProvider* CGDataProviderRef;

// A fixed-type enumeration, as the SDK's CF_ENUM makes it: in C++ a plain int does not convert.
enum CGColorRenderingIntent : int32_t {
    kCGRenderingIntentPerceptual = 3,
};

CGDataProviderRef CGDataProviderCreateWithCFData(CFDataRef data);
CGImageRef CGImageCreateWithJPEGDataProvider(CGDataProviderRef source, const CGFloat* decode,
                                             bool shouldInterpolate, CGColorRenderingIntent intent);
CGImageRef CGImageCreateWithPNGDataProvider(CGDataProviderRef source, const CGFloat* decode,
                                            bool shouldInterpolate, CGColorRenderingIntent intent);
size_t CGImageGetWidth(CGImageRef image);
size_t CGImageGetHeight(CGImageRef image);
void CGContextDrawImage(CGContextRef c, CGRect rect, CGImageRef image);
}
