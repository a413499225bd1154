// GSRuntimeClass.h - the record that names a class and creates it from a name read in a file.
//
// Every record registers itself in one process-wide registry sorted by name while the program
// starts (static initialisation); afterwards the registry is only read, so look-ups from several
// threads need no lock. Records are never removed.
#pragma once

#include "objects/GSFixArray.h"
#include "text/GSString.h"

class GSObject;

class GSRuntimeClass {
public:
    using Factory = GSObject* (*)();

    GSRuntimeClass(const GSString& name, GSRuntimeClass* base, Factory factory);
    GSRuntimeClass(const GSRuntimeClass&) = delete;
    GSRuntimeClass& operator=(const GSRuntimeClass&) = delete;

    const GSString& getName() const { return name; }
    GSRuntimeClass* getBaseClass() const { return base; }
    // A spare word kept for the embedding application; nothing here uses it.
    void* getSpare() const { return spare; }
    Factory getFactory() const { return factory; }

    // The record named `name` (compared bytewise), or null.
    static GSRuntimeClass* getRuntimeClassForName(const GSString& name);
    // A new object (reference count 0) of the class named `name`; null for an unknown class or
    // one without a factory.
    static GSObject* createObjectForName(const GSString& name);

    using Registry = GSFixArray<GSRuntimeClass*, 64>;
    static Registry& registry();

private:
    GSString name;
    Factory factory;
    GSRuntimeClass* base;
    void* spare = nullptr;
};
