// fuzz_thumbnail.cpp - the whole thumbnail path on arbitrary bytes: extraction, the fit, JPEG and
// PNG decoding, scaling and PNG encoding.
//
// Input: byte 0 picks the path and the size. Below 0x80 the rest is a document, read as the
// thumbnailer reads one; from 0x80 up it is the preview itself, JPEG or PNG by bit 0, so that
// the decoders see arbitrary pictures directly and not only those that survive extraction.
// The thumbnail fits into 16 to 272 pixels (the low bits of byte 0 times 8, plus 16).
#include "FuzzInput.h"
#include "fileformat/GSFormatNumbers.h"
#include "fileformat/GSLimits.h"
#include "objects/GSExceptions.h"
#include "thumbnail/GSGetThumbnail.h"
#include "thumbnail/GSThumbnailRenderer.h"

#include <cstring>

// Budgets below a desktop's: a small input that declares a huge picture is refused sooner, so
// every run stays fast and the refusal paths are reached often.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    GSLimits tight;
    tight.declaredPixels = 16L * 1000 * 1000;
    tight.decodedPixels = 4L * 1024 * 1024;
    tight.jpegMemory = 32L * 1024 * 1024;
    tight.jpegScans = 50;
    GSTightenLimits(tight);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const int maxSize = 16 + (data[0] & 0x1F) * 8;
    GSDynaArray<unsigned char> bytes;
    int kind = GSPreviewJPEG;
    GSTSize<int> stated;
    bool sizeGiven = false;
    if (data[0] < 0x80) {
        GSFile file;
        openMemoryFile(&file, data + 1, size - 1);
        int info = 0;
        EmberTideDocumentFacts facts;
        try {
            EmberTideReadPreview(&file, &bytes, &kind, &info, &stated, &facts);
        } catch (const std::bad_file&) {
            return 0;
        }
        sizeGiven = facts.sizeGiven;
    } else {
        kind = (data[0] & 1) ? GSPreviewPNG : GSPreviewJPEG;
        bytes.setSize(static_cast<long>(size - 1));
        if (size > 1) std::memcpy(bytes.getMutableData(), data + 1, size - 1);
    }
    GSThumbnailResult result =
        GSRenderPreview(bytes, kind, sizeGiven ? &stated : nullptr, maxSize, {});
    if (result.status == GSThumbnailStatus::kOK) {
        if (result.png.empty() || result.size.width < 1 || result.size.height < 1 ||
            result.size.width > maxSize || result.size.height > maxSize)
            __builtin_trap(); // a thumbnail must fit its box
    }
    return 0;
}
