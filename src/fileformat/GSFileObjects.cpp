// GSFileObjects.cpp - object records and the start and end of object merging on GSFile.
//
// A record is a marker byte (0 in place, 1 null, 2 reference), the class name and the object's
// body, itself a chunk of major version 15 or less, so that a reader can skip a class it does not
// know. Records nest (an object's body may hold records); nesting deeper than
// GSFile::kMaxObjectDepth is a failed read, so no file can make reading recurse without bound.
#include "fileformat/GSFile.h"
#include "fileformat/GSFileObjectTable.h"
#include "fileformat/GSLimits.h"
#include "fileformat/GSTagRead.h"
#include "objects/GSExceptions.h"
#include "objects/GSObject.h"
#include "objects/GSRuntimeClass.h"

#include <new>

namespace {

thread_local int objectDepth = 0;

class DepthGuard {
public:
    DepthGuard() { ++objectDepth; }
    ~DepthGuard() { --objectDepth; }
    DepthGuard(const DepthGuard&) = delete;
    DepthGuard& operator=(const DepthGuard&) = delete;
    bool tooDeep() const { return objectDepth > GSCurrentLimits().objectDepth; }
};

} // namespace

short GSFile::_writeObject(const GSObject* object) {
    if (!object) return putChar(1);
    if (putChar(0)) return 1;
    if (object->getRuntimeClass()->getName().write(this)) return 1;
    return object->write(this) ? 1 : 0;
}

short GSFile::_readObject(GSObject** object) {
    *object = nullptr;
    DepthGuard depth;
    if (depth.tooDeep()) return 1;
    if (getChar() != 0) return 1;
    GSString name;
    if (short status = name.read(this)) return status;
    if (name.isEmpty()) return 1;
    GSObject* created = GSRuntimeClass::createObjectForName(name);
    if (!created) {
        // Unknown classes (and those, like "GifParameter", passed over on purpose) cost only
        // their bytes.
        skipObject();
        return 0;
    }
    long position = tell();
    short status = created->read(this);
    if (status) {
        seek(position, 0);
        skipObject();
        delete created; // nobody holds it yet
        return status;
    }
    *object = created->getObjectAfterRead();
    return 0;
}

short GSFile::skipObject() {
    GSTagRead reader(this);
    if (short status = reader.readVersion(0x0F00, nullptr)) return status;
    for (;;) {
        int tag = reader.read();
        if (tag == GSTagRead::kEndTag) return 0;
        if (tag == GSTagRead::kBadTag || reader.skip()) return 1;
    }
}

short GSFile::_skipObject() {
    short marker = getChar();
    if (marker == 2) {
        int index;
        return readLong(&index);
    }
    if (marker == 0) {
        GSString name;
        if (short status = name.read(this)) return status;
        return skipObject();
    }
    return 0;
}

short GSFile::writeObject(const GSObject* object) {
    return objectTable ? objectTable->writeObject(object, 0) : _writeObject(object);
}

short GSFile::readObject(GSObject** object) {
    if (objectTable) return objectTable->readObject(object);
    return _readObject(object);
}

GSObject* GSFile::readObject() {
    GSObject* object = nullptr;
    if (readObject(&object)) return nullptr;
    return object;
}

short GSFile::startObjectMergingWrite(short use64Bit) {
    if (objectTable) throw std::bad_file();
    objectTable.reset(new GSFileObjectTable(64, -100));
    short status = objectTable->startWriteObjectTable(this, use64Bit);
    if (use64Bit) flags |= kRawFloats | kRawDoubles;
    return status;
}

void GSFile::stopObjectMergingWrite() {
    if (!objectTable) throw std::bad_file();
    objectTable->endWriteObjectTable();
    objectTable.reset();
}

short GSFile::startObjectMergingRead() {
    if (objectTable) throw std::bad_file();
    objectTable.reset(new GSFileObjectTable(64, -100));
    short status = objectTable->startReadObjectTable(this);
    if (status) {
        stopObjectMergingRead();
        return status;
    }
    if (objectTable->getUse64Bit()) flags |= kRawFloats | kRawDoubles;
    return 0;
}

void GSFile::stopObjectMergingRead() {
    if (!objectTable) throw std::bad_file();
    objectTable->endReadObjectTable();
    objectTable.reset();
}
