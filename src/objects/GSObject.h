// GSObject.h - the reference-counted base of everything written to files by class name.
//
// A GSObject carries an atomic reference count that starts at 0: whoever stores a pointer takes
// a reference (addReference) and drops it with release(), which destroys the object when the
// count reaches 0. An object nobody ever took is deleted directly by its creator. Classes that
// can be created from a name read in a file carry a static GSRuntimeClass record
// (gsClass<Name>), a static _createFunction() and a getRuntimeClass() override.
#pragma once

#include <atomic>

class GSFile;
class GSRuntimeClass;

class GSObject {
public:
    GSObject() noexcept { refCount.store(0); }
    // A copy is a new object with no holders yet.
    GSObject(const GSObject&) noexcept { refCount.store(0); }
    GSObject& operator=(const GSObject&) noexcept { return *this; }
    virtual ~GSObject();

    // Copies this object's state into an object of the same class by writing it to a file in
    // memory and reading it back.
    virtual short copyContentTo(GSObject* target) const;
    virtual const GSRuntimeClass* getRuntimeClass() const;
    virtual short read(GSFile* file);
    virtual short write(GSFile* file) const;
    // The object reader keeps what this returns in place of the object just read.
    virtual GSObject* getObjectAfterRead();
    // The object table writes what this returns in place of the object.
    virtual const GSObject* getObjectToWrite(GSFile* file) const;
    virtual void* getAuxiliaryObject() const;

    short copyContentWithFile(GSObject* target, int bufferSize, GSFile* file) const;
    // True only for the exact class: the base chain is deliberately not walked.
    bool isKindOfRuntimeClass(const GSRuntimeClass& cls) const;

    void addReference() const noexcept { refCount.fetch_add(1); }
    void release() const noexcept;
    void releaseNoDelete() const noexcept { refCount.fetch_sub(1); }
    int getReferenceCount() const noexcept { return refCount.load(); }

    static GSRuntimeClass gsClassGSObject;

private:
    mutable std::atomic<int> refCount;
};

// The object as a T when it is exactly of the class `cls` (T's own record), else null: objects
// made from a class name in a file are checked before their fields are used, never just cast.
template <class T> T* GSObjectCast(GSObject* object, const GSRuntimeClass& cls) {
    return object && object->isKindOfRuntimeClass(cls) ? static_cast<T*>(object) : nullptr;
}
