// GSObject.cpp - default operations, reference counting and copying through a memory file.
#include "objects/GSObject.h"

#include "fileformat/GSFile.h"
#include "fileformat/GSFormatNumbers.h"
#include "objects/GSRuntimeClass.h"

#include <memory>

GSRuntimeClass GSObject::gsClassGSObject("GSObject", nullptr, nullptr);

GSObject::~GSObject() = default;

const GSRuntimeClass* GSObject::getRuntimeClass() const {
    return &gsClassGSObject;
}
short GSObject::read(GSFile*) {
    return 0;
}
short GSObject::write(GSFile*) const {
    return 0;
}
GSObject* GSObject::getObjectAfterRead() {
    return this;
}
const GSObject* GSObject::getObjectToWrite(GSFile*) const {
    return this;
}
void* GSObject::getAuxiliaryObject() const {
    return nullptr;
}

void GSObject::release() const noexcept {
    if (refCount.fetch_sub(1) == 1) delete this;
}

bool GSObject::isKindOfRuntimeClass(const GSRuntimeClass& cls) const {
    return getRuntimeClass() == &cls;
}

short GSObject::copyContentTo(GSObject* target) const {
    return copyContentWithFile(target, 4096, nullptr);
}

short GSObject::copyContentWithFile(GSObject* target, int bufferSize, GSFile* file) const {
    if (!target || getRuntimeClass() != target->getRuntimeClass()) return 1;
    std::unique_ptr<GSFile> temporary;
    if (!file) {
        temporary = std::make_unique<GSFile>();
        if (temporary->init(GSGrowDouble, bufferSize)) return 1;
        file = temporary.get();
    }
    file->open();
    file->startObjectMergingWrite(1);
    short status = write(file);
    file->stopObjectMergingWrite();
    if (status) return status;
    file->seek(0, 0);
    short result = 1;
    if (file->startObjectMergingRead() == 0) {
        result = target->read(file) ? 1 : 0;
        file->stopObjectMergingRead();
    }
    return result;
}
