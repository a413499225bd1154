// fuzz_extract.cpp - preview extraction from arbitrary bytes: header, top-level scan, preview
// chunk, picture records and object merging.
#include "FuzzInput.h"
#include "objects/GSExceptions.h"
#include "thumbnail/GSGetThumbnail.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    GSFile file;
    openMemoryFile(&file, data, size);
    GSDynaArray<unsigned char> bytes;
    int kind = 0, info = 0;
    GSTSize<int> previewSize;
    EmberTideDocumentFacts facts;
    try {
        EmberTideReadPreview(&file, &bytes, &kind, &info, &previewSize, &facts);
    } catch (const std::bad_file&) {
        // Merging started twice, or a table lost: misuse the reader reports by exception.
    }
    return 0;
}
