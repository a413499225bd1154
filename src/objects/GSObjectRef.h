// GSObjectRef.h - an owning holder of one reference to a GSObject.
//
// Taking a pointer adds a reference; destruction or reset releases it. Used wherever code holds
// an object for a while, so that early returns and exceptions never leak or double-release.
#pragma once

#include "objects/GSObject.h"

#include <utility>

template <class T> class GSObjectRef {
public:
    GSObjectRef() = default;
    explicit GSObjectRef(T* object) : ptr(object) {
        if (ptr) ptr->addReference();
    }
    GSObjectRef(const GSObjectRef& other) : GSObjectRef(other.ptr) {}
    GSObjectRef(GSObjectRef&& other) noexcept : ptr(std::exchange(other.ptr, nullptr)) {}
    GSObjectRef& operator=(GSObjectRef other) noexcept {
        std::swap(ptr, other.ptr);
        return *this;
    }
    ~GSObjectRef() { reset(); }

    void reset(T* object = nullptr) {
        if (object) object->addReference();
        T* old = std::exchange(ptr, object);
        if (old) old->release();
    }
    T* get() const { return ptr; }
    T* operator->() const { return ptr; }
    T& operator*() const { return *ptr; }
    explicit operator bool() const { return ptr != nullptr; }

private:
    T* ptr = nullptr;
};
