// GSGetThumbnail.cpp - the header, the top-level scan and the preview chunk.
#include "thumbnail/GSGetThumbnail.h"

#include "fileformat/GSFile.h"
#include "fileformat/GSFormatNumbers.h"
#include "fileformat/GSTagRead.h"
#include "objects/GSObjectRef.h"
#include "thumbnail/GSMemPicData.h"

namespace {

short readHeader(GSFile* file, short* version, short* merging, short* isSelection,
                 EmberTideDocumentFacts* facts) {
    long start = file->tell();
    bool selection = false;
    if (!file->hasID(kEmberTideDocumentID, 1)) {
        file->seek(start, 0);
        if (!file->hasID(kEmberTideSelectionID, 1)) {
            file->seek(start, 0);
            return 1;
        }
        selection = true;
    }
    if (facts) facts->recognised = true;
    GSTagRead reader(file);
    short status = EmberTideDataReadVersion(&reader, version, merging);
    if (facts) {
        facts->isSelection = selection;
        facts->versionRead = reader.hasReadVersion();
        facts->version = reader.getVersion();
        facts->headerAccepted = status == 0;
    }
    if (isSelection) *isSelection = selection ? 1 : 0;
    if (status) file->seek(start, 0);
    return status;
}

// Reads the preview chunk up to the start of the image bytes; returns their count (0: none).
long readPreviewChunk(GSFile* file, int* kind, int* infoValue, GSTSize<int>* size,
                      EmberTideDocumentFacts* facts) {
    GSTagRead chunk(file);
    if (chunk.readVersion(GSChunkVersion, nullptr)) return 0;
    for (;;) {
        int tag = chunk.read();
        if (tag == GSTagRead::kEndTag || tag == GSTagRead::kBadTag) return 0;
        if (tag == GSPreviewTagInfo) {
            if (GSReadPreviewInfo(file, infoValue, size)) return 0;
            if (facts) facts->infoGiven = facts->sizeGiven = true;
            continue; // the next item follows the information directly
        }
        if (tag == GSPreviewTagRecord) {
            GSObjectRef<GSObject> object(file->readObject());
            // Only a picture-data object is looked into; any other class is no object.
            if (!GSMemPicData::isPictureData(object.get())) return 0;
            auto* picture = static_cast<GSMemPicData*>(object.get());
            *kind = picture->kind;
            *size = picture->size;
            if (facts) {
                facts->sizeGiven = true;
                facts->pictureStore =
                    picture->getRuntimeClass() == &GSSystemPicData::gsClassGSSystemPicData
                        ? EmberTideDocumentFacts::kSystemRecord
                        : EmberTideDocumentFacts::kRecord;
            }
            return picture->dataSize;
        }
        if (tag == GSPreviewTagInline) {
            GSMemPicData picture;
            if (picture.readData(file)) return 0;
            *kind = picture.kind;
            if (facts) facts->pictureStore = EmberTideDocumentFacts::kInline;
            return picture.dataSize;
        }
        if (chunk.skip()) return 0;
    }
}

} // namespace

short EmberTideDataReadVersion(GSTagRead* reader, short* version, short* merging) {
    if (merging) *merging = 0;
    short v = 0;
    short result = reader->readVersion(770, &v);
    GSFile* file = nullptr;
    if (reader->hasReadVersion() && v >= kEmberTideMergingVersion) {
        file = reader->getFile();
        file->setFlags(file->getFlags() | GSFile::kRawFloats | GSFile::kRawDoubles);
        if (merging) {
            if (result == 0) {
                if (file->startObjectMergingRead())
                    result = 1;
                else
                    *merging = 1;
            } else {
                result = 1;
            }
        }
    }
    if (version && reader->hasReadVersion()) *version = v;
    return result;
}

short EmberTideDataReadHeader(GSFile* file, short* version, short* merging, short* isSelection) {
    return readHeader(file, version, merging, isSelection, nullptr);
}

void EmberTideReadPreview(GSFile* file, GSDynaArray<unsigned char>* bytes, int* kind,
                          int* infoValue, GSTSize<int>* size, EmberTideDocumentFacts* facts,
                          bool selections) {
    short version = 0, merging = 0, isSelection = 0;
    if (readHeader(file, &version, &merging, &isSelection, facts) || (isSelection && !selections))
        return;
    bool mergingActive = merging != 0;
    GSTagRead top(file);
    for (;;) {
        int tag = top.read();
        if (tag == GSTagRead::kEndTag || tag == GSTagRead::kBadTag) break;
        if (tag == GSTagStartMerging) {
            file->startObjectMergingRead(); // its status is deliberately not checked
            mergingActive = true;
            continue;
        }
        if (tag == GSTagRawFloats || tag == GSTagRawDoubles) {
            file->setFlags(file->getFlags() |
                           (tag == GSTagRawFloats ? GSFile::kRawFloats : GSFile::kRawDoubles));
            continue;
        }
        if (tag == GSTagPreview) {
            long count = readPreviewChunk(file, kind, infoValue, size, facts);
            // Image bytes beyond the end of the file are no preview: checked before allocating.
            if (count < 1 || !file->fitsInFile(count) || bytes->setSize(count)) break;
            if (file->read(bytes->getMutableData(), count)) {
                bytes->clear();
                break;
            }
            continue;
        }
        if (facts) ++facts->otherItems;
        if (top.skip()) break;
    }
    if (mergingActive) file->stopObjectMergingRead();
}

short GSGetThumbnailWithFacts(const GSFileSpec& spec, GSDynaArray<unsigned char>* bytes, int* kind,
                              int* infoValue, GSTSize<int>* size, EmberTideDocumentFacts* facts) {
    GSFile file(spec, 0);
    if (short status = file.open()) return status;
    EmberTideReadPreview(&file, bytes, kind, infoValue, size, facts);
    return 0;
}

short GSGetThumbnail(const GSFileSpec& spec, GSDynaArray<unsigned char>* bytes, int* kind,
                     int* infoValue, GSTSize<int>* size) {
    return GSGetThumbnailWithFacts(spec, bytes, kind, infoValue, size, nullptr);
}
