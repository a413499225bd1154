// GSArray.h - an untyped array of fixed-size elements, and its pointer and object forms.
//
// GSArray moves raw element bytes and grows by the growth rule (GSGrowth.h). A failed growth
// frees the old block and leaves the array empty with status 1: that loss is the framework's
// defined behaviour, never an exception. ObjectArray holds one reference on every object it
// stores and releases it when the slot is removed, emptied or destroyed; its file form is an
// array count followed by one object record per element.
#pragma once

class GSFile;
class GSObject;

class GSArray {
public:
    GSArray(long elementSize, long capacity, long grow);
    GSArray(const GSArray&) = delete;
    GSArray& operator=(const GSArray&) = delete;
    virtual ~GSArray();

    short init(long elementSize, long capacity, long grow);
    void exit();
    short add(const void* element) { return insertAt(-1, element); }
    short insertAt(long index, const void* element);
    short removeAt(long index);
    long getCount() const { return count; }
    long getCapacity() const { return capacity; }
    short enlarge();
    short setSize(long n);
    void* getElement(long index) const;

protected:
    short ownsStorage = 1;
    long storageBytes = 0;
    unsigned char* storage = nullptr;
    long elementSize = 0;
    long count = 0;
    long capacity = 0;
    long grow = 0;
};

class PointerArray : public GSArray {
public:
    PointerArray(long capacity, long grow) : GSArray(sizeof(void*), capacity, grow) {}
    void* getElementAt(long index) const;
};

class ObjectArray : public PointerArray {
public:
    ObjectArray(long capacity = 0, long grow = -100) : PointerArray(capacity, grow) {}
    ~ObjectArray() override;
    ObjectArray& operator=(const ObjectArray& other);

    short insertAt(long index, const GSObject* object);
    short add(const GSObject* object) { return insertAt(-1, object); }
    short removeAt(long index);
    void empty();
    GSObject* getObjectAt(long index) const { return static_cast<GSObject*>(getElementAt(index)); }

    short read(GSFile* file);
    short write(GSFile* file) const;
};
