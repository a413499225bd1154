// ThumbnailProvider.mm - the QuickLook thumbnail extension: one request, one reply.
//
// The principal class of the extension. For each request it extracts the document's embedded
// preview with GSGetThumbnail, decodes the JPEG or PNG bytes with CoreGraphics, fits the image
// with GSFitPreview (the fit rule every thumbnail of ours uses) and replies with a block that
// draws it. It never renders the document and keeps nothing between requests. Every Core
// Foundation object lives in a GSCFHolder, so it is released on every path out, exceptions
// included; the image lives on in the drawing block's own holder until the service disposes of
// the block. Every failure is a nil reply with a nil error, and the completion handler is called
// exactly once, on the calling thread, before the method returns.
#import <CoreFoundation/CoreFoundation.h>
#import <CoreGraphics/CoreGraphics.h>
#import <Foundation/Foundation.h>
#import <QuickLookThumbnailing/QuickLookThumbnailing.h>

#include "thumbnail/GSGetThumbnail.h"
#include "thumbnail/GSThumbnailFit.h"

#include <exception>
#include <utility>

namespace {

// Owns one reference to a Core Foundation object (null when empty). Constructing from or
// assigning a raw reference adopts it (the Create rule: the reference was ours already);
// copying shares with CFRetain. Released by CFRelease when the holder is destroyed (also while
// an exception passes) or given another object.
template <class Ref> class GSCFHolder {
public:
    GSCFHolder() = default;
    explicit GSCFHolder(Ref adopted) : ref(adopted) {}
    GSCFHolder(const GSCFHolder& other) : ref(other.ref) {
        if (ref) CFRetain(ref);
    }
    ~GSCFHolder() {
        if (ref) CFRelease(ref);
    }
    GSCFHolder& operator=(const GSCFHolder& other) {
        GSCFHolder copy(other);
        std::swap(ref, copy.ref);
        return *this;
    }
    GSCFHolder& operator=(Ref adopted) {
        if (adopted != ref) {
            Ref old = std::exchange(ref, adopted);
            if (old) CFRelease(old);
        }
        return *this;
    }

    Ref get() const { return ref; }
    explicit operator bool() const { return ref != nullptr; }

private:
    Ref ref = nullptr;
};

// The reply for one request, or nil. Exceptions of the extraction pass through (the holders
// release their objects on the way).
QLThumbnailReply* GSThumbnailReplyForRequest(QLFileThumbnailRequest* request) {
    GSDynaArray<unsigned char> bytes(-100);
    GSCFHolder<CGImageRef> image;
    int kind = 0;
    int infoValue = 0;
    // A document without a stated size leaves this untouched; the image's own size is used then.
    GSTSize<int> size{0, 0};

    short status;
    {
        GSFileSpec document((__bridge void*)request.fileURL);
        status = GSGetThumbnail(document, &bytes, &kind, &infoValue, &size);
    }
    if (status != 0 || !bytes.hasStorage() || bytes.getSize() == 0) return nil;

    GSCFHolder<CFDataRef> data(CFDataCreate(kCFAllocatorDefault, bytes.getData(), bytes.getSize()));
    if (!data) return nil;
    GSCFHolder<CGDataProviderRef> provider(CGDataProviderCreateWithCFData(data.get()));
    if (!provider) return nil;

    // Kind 3 is PNG (picture data reports every PNG kind as 3); every other kind is JPEG.
    if (kind == 3)
        image = CGImageCreateWithPNGDataProvider(provider.get(), nullptr, true,
                                                 kCGRenderingIntentPerceptual);
    else
        image = CGImageCreateWithJPEGDataProvider(provider.get(), nullptr, true,
                                                  kCGRenderingIntentPerceptual);
    if (!image) return nil;

    double w = size.width, h = size.height;
    if (!(size.width > 0 && size.height > 0)) {
        w = static_cast<double>(CGImageGetWidth(image.get()));
        h = static_cast<double>(CGImageGetHeight(image.get()));
    }
    CGSize maximum = request.maximumSize;
    GSFittedSize fitted;
    if (!GSFitPreview(w, h, maximum.width, maximum.height, &fitted)) return nil;

    // The image keeps what it needs of the bytes.
    provider = nullptr;
    data = nullptr;

    // The block holds its own copies: the request (retained), the context size and the image
    // (a holder of its own, copied with the block and released when the block is disposed).
    const CGFloat contextWidth = fitted.width;
    const CGFloat contextHeight = fitted.height;
    return [QLThumbnailReply
        replyWithContextSize:CGSizeMake(contextWidth, contextHeight)
                drawingBlock:^BOOL(CGContextRef context) {
                  const CGFloat scale = request.scale;
                  CGContextDrawImage(context,
                                     CGRectMake(0, 0, scale * contextWidth, scale * contextHeight),
                                     image.get());
                  return YES;
                }];
}

} // namespace

@interface ThumbnailProvider : QLThumbnailProvider
@end

@implementation ThumbnailProvider

- (void)provideThumbnailForFileRequest:(QLFileThumbnailRequest*)request
                     completionHandler:(void (^)(QLThumbnailReply* _Nullable reply,
                                                 NSError* _Nullable error))handler {
    QLThumbnailReply* reply = nil;
    try {
        reply = GSThumbnailReplyForRequest(request);
    } catch (const std::exception&) {
        // A document that breaks the framework's rules (bad_file, bad_index) or a failed
        // allocation is one more failure; exceptions stop here, at the extension's boundary.
        reply = nil;
    }
    handler(reply, nil);
}

@end
