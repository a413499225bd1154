// GSThumbnailRenderer.cpp - one thumbnail, start to end.
#include "thumbnail/GSThumbnailRenderer.h"

#include "storage/GSAtomicFile.h"
#include "thumbnail/GSGetThumbnail.h"
#include "thumbnail/GSImageHeader.h"
#include "thumbnail/GSImageScaler.h"
#include "thumbnail/GSPreviewDecoder.h"
#include "thumbnail/GSThumbnailFit.h"
#include "thumbnail/GSWorkDeadline.h"

#include <cerrno>
#include <cstring>
#include <exception>
#include <sys/stat.h>
#include <system_error>
#include <utility>

namespace {

GSThumbnailResult fail(GSThumbnailStatus status, std::string message) {
    GSThumbnailResult result;
    result.status = status;
    result.message = std::move(message);
    return result;
}

} // namespace

GSThumbnailResult GSRenderThumbnail(const GSThumbnailRequest& request) {
    struct stat st;
    if (::stat(request.path.c_str(), &st) != 0)
        return fail(GSThumbnailStatus::kCannotOpen, GSErrorText(errno));
    if (S_ISDIR(st.st_mode)) return fail(GSThumbnailStatus::kCannotOpen, "is a folder");
    // A pipe or a device could block the reader for ever, or never end.
    if (!S_ISREG(st.st_mode)) return fail(GSThumbnailStatus::kCannotOpen, "not a regular file");

    GSDynaArray<unsigned char> bytes;
    int kind = 0, infoValue = 0;
    GSTSize<int> size;
    EmberTideDocumentFacts facts;
    try {
        errno = 0;
        if (GSGetThumbnailWithFacts(GSFileSpec(GSString(request.path.c_str(), -1, GSString::kUTF8)),
                                    &bytes, &kind, &infoValue, &size, &facts))
            return fail(GSThumbnailStatus::kCannotOpen, errno ? GSErrorText(errno) : "cannot open");
    } catch (const std::exception& e) {
        return fail(GSThumbnailStatus::kNoPreview,
                    std::string("damaged document (") + e.what() + ")");
    }
    if (bytes.getSize() < 1)
        return fail(GSThumbnailStatus::kNoPreview, !facts.recognised ? "not an Ember Tide document"
                                                   : facts.isSelection
                                                       ? "a selection carries no preview"
                                                       : "no preview in this document");
    return GSRenderPreview(bytes, kind, facts.sizeGiven ? &size : nullptr, request.maxSize,
                           request.text);
}

GSThumbnailResult GSRenderPreview(const GSDynaArray<unsigned char>& bytes, int kind,
                                  const GSTSize<int>* statedSize, int maxSize,
                                  const GSPNGText& text) {
    if (bytes.getSize() < 1) return fail(GSThumbnailStatus::kNoPreview, "no preview");
    // The fit follows the document's stated size; without one (or with an empty one), the
    // picture's own size as its header states it, else as decoded.
    GSTSize<int> basis{0, 0};
    if (statedSize && statedSize->width > 0 && statedSize->height > 0)
        basis = *statedSize;
    else {
        GSImageHeader header = GSReadImageHeader(bytes.getData(), bytes.getSize());
        if (header.sizeKnown && header.width > 0 && header.height > 0 &&
            header.width <= 0x7FFFFFFF && header.height <= 0x7FFFFFFF)
            basis = {static_cast<int>(header.width), static_cast<int>(header.height)};
    }
    GSFittedSize fitted;
    GSTSize<int> target{0, 0};
    if (basis.width > 0 && GSFitPreview(basis.width, basis.height, maxSize, maxSize, &fitted))
        target = GSFittedPixelSize(fitted);

    GSRasterImage decoded;
    std::string error;
    if (!GSDecodePreview(bytes.getData(), bytes.getSize(), kind, target.width, target.height,
                         &decoded, &error))
        return fail(GSThumbnailStatus::kUndecodable, error);
    if (target.width < 1) {
        basis = {decoded.width, decoded.height};
        if (!GSFitPreview(basis.width, basis.height, maxSize, maxSize, &fitted))
            return fail(GSThumbnailStatus::kUndecodable, "the picture is empty");
        target = GSFittedPixelSize(fitted);
    }

    GSThumbnailResult result;
    GSRasterImage scaled;
    // With a target, the decoder delivers exactly its size; a picture decoded at its own size
    // (its size was known only once decoded) is scaled here.
    if (decoded.width == target.width && decoded.height == target.height)
        scaled = std::move(decoded);
    else if (!GSScaleImage(decoded, target.width, target.height, &scaled))
        return fail(GSThumbnailStatus::kUndecodable,
                    GSWorkTimedOut() ? "scaling took too long" : "the picture cannot be scaled");
    if (!GSEncodePNG(std::move(scaled), text, &result.png, &error))
        return fail(GSThumbnailStatus::kUndecodable, error);
    result.status = GSThumbnailStatus::kOK;
    result.size = target;
    result.previewSize = basis;
    result.kind = kind;
    return result;
}
