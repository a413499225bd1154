// make_examples.cpp - writes the sample documents of examples/ with the framework's own writer.
//
// Usage: make-examples FOLDER. Each document wraps a picture drawn by SampleImages; together
// they cover both preview formats, versions 2 and 3, both chunk forms and every way of storing
// the preview, plus one document whose preview sits behind a large item of other data.
#include "EmberTideDocumentWriter.h"
#include "GSFile.h"
#include "GSFileWorker.h"
#include "SampleImages.h"

#include <cstdio>
#include <string>

namespace {

EmberTidePreview makePreview(const std::vector<unsigned char>& bytes, int kind, int w, int h) {
    EmberTidePreview preview;
    preview.kind = kind;
    preview.infoValue = 1;
    preview.size = {w, h};
    preview.bytes.setSize(static_cast<long>(bytes.size()));
    for (size_t i = 0; i < bytes.size(); ++i) preview.bytes[static_cast<long>(i)] = bytes[i];
    return preview;
}

bool writeDocument(const std::string& path, const EmberTidePreview& preview,
                   const EmberTideDocumentOptions& options) {
    GSFile file(GSFileSpec(GSString(path.c_str())), 0);
    file.getFileWorker()->setAccessMode("wb+");
    if (file.open() || EmberTideWriteDocument(&file, preview, options) || file.close(0)) {
        std::fprintf(stderr, "make-examples: %s: cannot write\n", path.c_str());
        return false;
    }
    return true;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "Usage: make-examples FOLDER\n");
        return 2;
    }
    std::string folder = argv[1];
    auto landscape = samples::drawLandscape(320, 240, false);
    auto tall = samples::drawLandscape(120, 200, false);
    auto clear = samples::drawLandscape(256, 160, true);
    EmberTidePreview jpeg = makePreview(samples::encodeJPEG(landscape, 85), 2, 320, 240);
    EmberTidePreview png = makePreview(samples::encodePNG(clear), 3, 256, 160);
    EmberTidePreview tallJpeg = makePreview(samples::encodeJPEG(tall, 80), 2, 120, 200);

    using O = EmberTideDocumentOptions;
    struct Sample {
        const char* name;
        const EmberTidePreview* preview;
        O options;
    } all[] = {
        {"landscape-v2-inline.etd", &jpeg, {0x0200, false, O::kInline, false, 0}},
        {"transparent-v2-png.etd", &png, {0x0200, false, O::kInline, false, 0}},
        {"tall-v2-record.etd", &tallJpeg, {0x0200, false, O::kRecord, false, 0}},
        {"landscape-v3-long-record.etd", &jpeg, {0x0300, false, O::kRecord, false, 0}},
        {"landscape-v3-byte-system-record.etd", &jpeg, {0x0302, true, O::kSystemRecord, false, 0}},
        {"transparent-v3-byte-inline.etd", &png, {0x0302, true, O::kInline, false, 0}},
        {"behind-large-item-v2.etd", &jpeg, {0x0200, false, O::kInline, false, 256 * 1024}},
        {"selection-v2.etd", &jpeg, {0x0200, false, O::kInline, true, 0}},
    };
    for (const Sample& s : all)
        if (!writeDocument(folder + "/" + s.name, *s.preview, s.options)) return 1;
    return 0;
}
