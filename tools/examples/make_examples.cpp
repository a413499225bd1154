// make_examples.cpp - draws the sample pictures, and writes the two sample documents that
// `ember-tide create` cannot make: a preview behind a large item of other data, and a document
// saved without a preview.
//
// Usage: make-examples IMAGE_FOLDER DOCUMENT_FOLDER. tools/make-examples.sh then wraps the
// pictures into documents with `ember-tide create`.
#include "DemoPictures.h"
#include "SampleImages.h"
#include "fileformat/GSFile.h"
#include "fileformat/GSFormatNumbers.h"
#include "fileformat/GSTagWrite.h"
#include "storage/GSFileWorker.h"
#include "thumbnail/EmberTideDocumentWriter.h"

#include <cstdio>
#include <string>

namespace {

EmberTidePreview makePreview(const std::vector<unsigned char>& bytes, int kind, int w, int h) {
    EmberTidePreview preview;
    preview.kind = kind;
    preview.infoValue = 1;
    preview.size = {w, h};
    preview.bytes.setSize(static_cast<long>(bytes.size()));
    for (size_t i = 0; i < bytes.size(); ++i)
        preview.bytes[static_cast<long>(i)] = bytes[i];
    return preview;
}

bool writeDocument(const std::string& path, const EmberTidePreview& preview,
                   const EmberTideDocumentOptions& options) {
    GSFile file(GSFileSpec(GSString(path.c_str(), -1, GSString::kUTF8)), 0);
    file.getFileWorker()->setAccessMode("wb+");
    if (file.open() || EmberTideWriteDocument(&file, preview, options) || file.close(GSCloseKeep)) {
        std::fprintf(stderr, "make-examples: %s: cannot write\n", path.c_str());
        return false;
    }
    return true;
}

// Only the editor's own data, as a document saved with previews switched off: the header and one
// item that readers skip, then the end of the top level.
bool writeDocumentWithoutPreview(const std::string& path) {
    GSFile file(GSFileSpec(GSString(path.c_str(), -1, GSString::kUTF8)), 0);
    file.getFileWorker()->setAccessMode("wb+");
    static const char data[64] = "the editor's own data";
    bool written =
        !file.open() && !EmberTideDataWriteHeader(&file, kEmberTideNewestVersion, true, false);
    if (written) {
        {
            GSTagWrite top(&file);
            written = !top.writeStart(GSTagPadding) && !file.write(data, sizeof data) &&
                      !top.writeEnd() && !top.writeEndTag();
        }
        file.stopObjectMergingWrite(); // the header started the object table
    }
    if (!written || file.close(GSCloseKeep)) {
        std::fprintf(stderr, "make-examples: %s: cannot write\n", path.c_str());
        return false;
    }
    return true;
}

bool writeImage(const std::string& path, const std::vector<unsigned char>& bytes) {
    std::FILE* f = std::fopen(path.c_str(), "wb");
    bool ok = f && std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    if (f && std::fclose(f) != 0) ok = false;
    if (!ok) std::fprintf(stderr, "make-examples: %s: cannot write\n", path.c_str());
    return ok;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "Usage: make-examples IMAGE_FOLDER DOCUMENT_FOLDER\n");
        return 2;
    }
    std::string images = argv[1], documents = argv[2];
    auto landscape = samples::encodeJPEG(samples::drawSunset(320, 240), 85);
    auto tall = samples::encodeJPEG(samples::drawLighthouse(150, 250), 85);
    auto transparent = samples::encodePNG(samples::drawTranslucentDisc(200, 200));
    if (!writeImage(images + "/landscape.jpg", landscape) ||
        !writeImage(images + "/tall.jpg", tall) ||
        !writeImage(images + "/transparent.png", transparent))
        return 1;
    // The samples the command-line tool cannot make: a preview behind a large item of the
    // editor's own data, which a reader must step over without reading it, and no preview at all.
    EmberTideDocumentOptions options;
    options.paddingBefore = 256 * 1024;
    bool ok = writeDocument(documents + "/behind-large-item-v2.etd",
                            makePreview(landscape, 2, 320, 240), options);
    return ok && writeDocumentWithoutPreview(documents + "/no-preview-v3.etd") ? 0 : 1;
}
