// GSMemPicData.cpp - reading and writing picture-data descriptions.
#include "thumbnail/GSMemPicData.h"

#include "fileformat/GSFile.h"
#include "fileformat/GSFormatNumbers.h"
#include "fileformat/GSTagRead.h"
#include "fileformat/GSTagWrite.h"
#include "objects/GSRuntimeClass.h"

#include <climits>
#include <new>

GSRuntimeClass GSMemPicData::gsClassGSMemPicData("GSMemPicData", &GSObject::gsClassGSObject,
                                                 &GSMemPicData::_createFunction);
GSRuntimeClass GSSystemPicData::gsClassGSSystemPicData("GSSystemPicData",
                                                       &GSMemPicData::gsClassGSMemPicData,
                                                       &GSSystemPicData::_createFunction);

GSObject* GSMemPicData::_createFunction() {
    return new (std::nothrow) GSMemPicData();
}
GSObject* GSSystemPicData::_createFunction() {
    return new (std::nothrow) GSSystemPicData();
}
const GSRuntimeClass* GSMemPicData::getRuntimeClass() const {
    return &gsClassGSMemPicData;
}
const GSRuntimeClass* GSSystemPicData::getRuntimeClass() const {
    return &gsClassGSSystemPicData;
}

bool GSMemPicData::isPictureData(const GSObject* object) {
    return object && (object->isKindOfRuntimeClass(gsClassGSMemPicData) ||
                      object->isKindOfRuntimeClass(GSSystemPicData::gsClassGSSystemPicData));
}

short GSReadPreviewInfo(GSFile* file, int* infoValue, GSTSize<int>* size) {
    short info;
    int width, height, ignored;
    if (file->readShort(&info) || file->readLong(&width) || file->readLong(&height) ||
        file->readLong(&ignored))
        return 1;
    *infoValue = info;
    *size = {width, height};
    return 0;
}

short GSWritePreviewInfo(GSFile* file, int infoValue, GSTSize<int> size) {
    if (file->writeIntAsShort(infoValue) || file->writeLong(size.width) ||
        file->writeLong(size.height) || file->writeLong(0))
        return 1;
    return 0;
}

short GSMemPicData::readData(GSFile* file) {
    int k;
    long count;
    if (file->readIntAsShort(&k) || file->readArrayCount(&count)) return 1;
    if (k == GSPreviewPNGAlias) k = GSPreviewPNG;
    kind = k;
    // The count is a 32-bit field; a compact count beyond it cannot describe real data.
    if (count < INT_MIN || count > INT_MAX) return 1;
    dataSize = static_cast<int>(count);
    return kind == GSPreviewJPEG || kind == GSPreviewPNG ? 0 : 1;
}

short GSMemPicData::writeData(GSFile* file) const {
    if (file->writeIntAsShort(kind)) return 1;
    return file->writeArrayCount(dataSize);
}

short GSMemPicData::read(GSFile* file) {
    GSTagRead reader(file);
    if (reader.readVersion(GSChunkVersion, nullptr)) return 1;
    short result = 0;
    for (;;) {
        int tag = reader.read();
        if (tag == GSTagRead::kEndTag) return result;
        if (tag == GSTagRead::kBadTag) return 1;
        if (tag == GSPictureTagInfo) {
            result = GSReadPreviewInfo(file, &infoValue, &size);
            if (result) return result;
        } else if (tag == GSPictureTagData) {
            return readData(file); // the image bytes follow; the end marker comes after them
        } else if (reader.skip()) {
            return 1;
        }
    }
}

short GSMemPicData::write(GSFile* file) const {
    GSTagWrite writer(file);
    if (writer.writeVersion(GSChunkVersion)) return 1;
    if (writer.writeStart(GSPictureTagInfo) || GSWritePreviewInfo(file, infoValue, size) ||
        writer.writeEnd())
        return 1;
    if (writer.writeStart(GSPictureTagData) || writeData(file)) return 1;
    if (bytes.getSize() > 0 && file->write(bytes.getData(), bytes.getSize())) return 1;
    if (writer.writeEnd()) return 1;
    return writer.writeEndTag();
}
