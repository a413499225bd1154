// EmberTideDocumentWriter.cpp - the document writer.
#include "thumbnail/EmberTideDocumentWriter.h"

#include "fileformat/GSFile.h"
#include "fileformat/GSFormatNumbers.h"
#include "fileformat/GSTagWrite.h"
#include "objects/GSObjectRef.h"
#include "thumbnail/GSGetThumbnail.h"
#include "thumbnail/GSMemPicData.h"

#include <cstring>
#include <vector>

short EmberTideDataWriteHeader(GSFile* file, short version, bool byteForm, bool isSelection) {
    const char* id = isSelection ? kEmberTideSelectionID : kEmberTideDocumentID;
    if (file->write(id, static_cast<long>(std::strlen(id)) + 1)) return 1;
    GSTagWrite top(file);
    if (top.writeVersion(version)) return 1;
    if (version >= kEmberTideMergingVersion) return file->startObjectMergingWrite(byteForm ? 1 : 0);
    return 0;
}

namespace {

short writePadding(GSFile* file, GSTagWrite* top, long bytes) {
    static const unsigned char zeros[4096] = {};
    if (top->writeStart(GSTagPadding)) return 1;
    // Large padding is a hole where the file system allows it: the bytes read back as zeros.
    if (bytes > (1L << 20) && file->seek(bytes - 1, 1) == 0 && file->writeChar(0) == 0)
        return top->writeEnd();
    for (long left = bytes; left > 0;) {
        long n = left < 4096 ? left : 4096;
        if (file->write(zeros, n)) return 1;
        left -= n;
    }
    return top->writeEnd();
}

short writePreviewChunk(GSFile* file, const EmberTidePreview& preview,
                        const EmberTideDocumentOptions& options) {
    GSTagWrite chunk(file);
    if (chunk.writeVersion(GSChunkVersion)) return 1;
    if (chunk.writeStart(GSPreviewTagInfo) ||
        GSWritePreviewInfo(file, preview.infoValue, preview.size) || chunk.writeEnd())
        return 1;
    if (options.store == EmberTideDocumentOptions::kInline) {
        GSMemPicData picture;
        picture.kind = preview.kind;
        picture.dataSize = static_cast<int>(preview.bytes.getSize());
        if (chunk.writeStart(GSPreviewTagInline) || picture.writeData(file) ||
            file->write(preview.bytes.getData(), preview.bytes.getSize()) || chunk.writeEnd())
            return 1;
    } else {
        GSObjectRef<GSMemPicData> picture(options.store == EmberTideDocumentOptions::kSystemRecord
                                              ? new GSSystemPicData()
                                              : new GSMemPicData());
        picture->kind = preview.kind;
        picture->dataSize = static_cast<int>(preview.bytes.getSize());
        picture->infoValue = preview.infoValue;
        picture->size = preview.size;
        picture->bytes = preview.bytes;
        if (chunk.writeStart(GSPreviewTagRecord) || file->writeObject(picture.get()) ||
            chunk.writeEnd())
            return 1;
    }
    return chunk.writeEndTag();
}

} // namespace

short EmberTideWriteDocument(GSFile* file, const EmberTidePreview& preview,
                             const EmberTideDocumentOptions& options) {
    if (EmberTideDataWriteHeader(file, options.version, options.byteForm, options.selection))
        return 1;
    bool merging = options.version >= kEmberTideMergingVersion;
    short status;
    {
        GSTagWrite top(file);
        status = options.paddingBefore > 0 ? writePadding(file, &top, options.paddingBefore) : 0;
        if (status == 0) status = top.writeStart(GSTagPreview);
        if (status == 0) status = writePreviewChunk(file, preview, options);
        if (status == 0) status = top.writeEnd();
        if (status == 0) status = top.writeEndTag();
    }
    if (merging) file->stopObjectMergingWrite();
    return status;
}
