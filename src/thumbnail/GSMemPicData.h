// GSMemPicData.h - the description of an encoded preview picture stored in a document.
//
// The object holds the kind (GSPreviewKind: JPEG or PNG, the alias read as PNG), the byte count,
// the information value and the pixel size; the encoded bytes themselves follow its record (or its
// inline body) directly in the file and are read by the caller. GSSystemPicData differs only by
// class.
#pragma once

#include "fileformat/GSFormatNumbers.h"
#include "objects/GSDynaArray.h"
#include "objects/GSObject.h"
#include "objects/GSTSize.h"

class GSMemPicData : public GSObject {
public:
    const GSRuntimeClass* getRuntimeClass() const override;
    static GSObject* _createFunction();
    static GSRuntimeClass gsClassGSMemPicData;

    // The object body: a chunk of major 1 with the information item (tag 0) and the picture
    // data (tag 3), after which reading stops: the image bytes follow.
    short read(GSFile* file) override;
    // Writes the whole body: the information item, then the picture data followed by `bytes`
    // inside the same item, so that a reader that does not know the class can skip it.
    short write(GSFile* file) const override;
    // The picture data: the kind (2 bytes) and the byte count (an array count).
    short readData(GSFile* file);
    short writeData(GSFile* file) const;
    // True for exactly GSMemPicData and GSSystemPicData.
    static bool isPictureData(const GSObject* object);

    int dataSize = 0;
    int kind = 0;
    int infoValue = 0;
    GSTSize<int> size;
    // The encoded picture, used only when writing: a reader takes the bytes from the file itself.
    GSDynaArray<unsigned char> bytes;
};

class GSSystemPicData : public GSMemPicData {
public:
    const GSRuntimeClass* getRuntimeClass() const override;
    static GSObject* _createFunction();
    static GSRuntimeClass gsClassGSSystemPicData;
};

// The preview information item (tag 0): the information value as a short, width, height and
// one further long that is read and ignored.
short GSReadPreviewInfo(GSFile* file, int* infoValue, GSTSize<int>* size);
short GSWritePreviewInfo(GSFile* file, int infoValue, GSTSize<int> size);
