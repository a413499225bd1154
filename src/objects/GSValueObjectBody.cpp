// GSValueObjectBody.cpp - writing and reading the shared value body.
#include "objects/GSValueObjectBody.h"

#include "fileformat/GSFile.h"
#include "fileformat/GSTagRead.h"
#include "fileformat/GSTagWrite.h"

short GSWriteValueBody(GSFile* file, GSValueCoder encode) {
    GSTagWrite writer(file);
    short result = 1;
    if (writer.writeVersion(kGSValueBodyVersion) == 0 && writer.writeStart(kGSValueItem) == 0) {
        // The item is closed even when the value failed, so that what follows stays readable.
        short encoded = encode(file);
        result = writer.writeEnd() || encoded ? 1 : 0;
    }
    writer.writeEndTag();
    return result;
}

short GSReadValueBody(GSFile* file, GSValueCoder decode) {
    GSTagRead reader(file);
    if (short status = reader.readVersion(kGSValueBodyVersion, nullptr)) return status;
    for (;;) {
        int tag = reader.read();
        if (tag == GSTagRead::kEndTag) return 0;
        if (tag == kGSValueItem) {
            if (short status = decode(file)) return status;
        } else if (tag == GSTagRead::kBadTag || reader.skip()) {
            return 1;
        }
    }
}
