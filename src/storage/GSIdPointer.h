// GSIdPointer.h - an owning holder of one reference to a platform object.
//
// The file-system layer hands out platform objects (file URLs) as opaque `void*` handles. A
// GSIdPointer owns one reference to such an object and drops it when it is destroyed or given
// another object. The two ways of storing differ on purpose: `attach` shares (the holder takes
// a reference of its own, the caller keeps its one), `operator=(void*)` adopts (the holder takes
// over the caller's reference, as the GSURLCreate... functions return it). The reference
// counting itself is the platform's: GSIdRetain and GSIdRelease are defined beside the GSURL
// functions of each platform (Core Foundation's on Apple platforms, the URL object's own atomic
// count elsewhere), so holders on different threads may share an object.
#pragma once

// One more / one less reference to a platform object; null is ignored. The last release frees
// the object.
void GSIdRetain(const void* object);
void GSIdRelease(const void* object);
// The object's current reference count (0 for null): for diagnostics and tests, never for
// deciding ownership.
long GSIdGetRetainCount(const void* object);

class GSIdPointer {
public:
    GSIdPointer() = default;
    GSIdPointer(const GSIdPointer& other) : object(other.object) { GSIdRetain(object); }
    ~GSIdPointer() { GSIdRelease(object); }

    // Shares `other`'s object.
    GSIdPointer& operator=(const GSIdPointer& other) {
        if (other.object != object) {
            GSIdRetain(other.object);
            void* old = object;
            object = other.object;
            GSIdRelease(old);
        }
        return *this;
    }
    // Adopts `adopted`: the caller's reference becomes the holder's.
    GSIdPointer& operator=(void* adopted) {
        if (adopted != object) {
            void* old = object;
            object = adopted;
            GSIdRelease(old);
        }
        return *this;
    }
    // Shares `shared`: the holder takes a reference of its own.
    void attach(void* shared) {
        if (shared != object) {
            GSIdRetain(shared);
            void* old = object;
            object = shared;
            GSIdRelease(old);
        }
    }
    // One more reference to the held object, for a receiver that will release it.
    void retain() const { GSIdRetain(object); }

    void* get() const { return object; }
    bool isEmpty() const { return object == nullptr; }

private:
    void* object = nullptr;
};
