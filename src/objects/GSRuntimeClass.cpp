// GSRuntimeClass.cpp - the sorted class registry.
#include "objects/GSRuntimeClass.h"

#include "objects/GSObject.h"

#include <cstdlib>
#include <cstring>

GSRuntimeClass::Registry& GSRuntimeClass::registry() {
    // Created on first use (thread-safe), destroyed at exit after the records' names.
    static Registry theRegistry;
    return theRegistry;
}

GSRuntimeClass::GSRuntimeClass(const GSString& className, GSRuntimeClass* baseClass, Factory create)
    : name(className), factory(create), base(baseClass) {
    Registry& reg = registry();
    long count = reg.getCount();
    long at = 0;
    if (count > 0 && name.compareValue(reg[0]->name) > 0) {
        long low = 0, high = count - 1, middle = 0;
        int last = 0;
        while (low <= high) {
            middle = (low + high) / 2;
            last = name.compareValue(reg[middle]->name);
            if (last == 0) break;
            if (last > 0)
                low = middle + 1;
            else
                high = middle - 1;
        }
        at = last < 0 || last == 0 ? middle : middle + 1;
    }
    GSRuntimeClass* self = this;
    reg.insert(at, &self, 1); // a failure leaves the class unregistered
}

GSRuntimeClass* GSRuntimeClass::getRuntimeClassForName(const GSString& name) {
    Registry& reg = registry();
    const char* wanted = name.getConstAddr() ? name.getConstAddr() : "";
    auto compare = [](const void* key, const void* element) {
        const GSRuntimeClass* record = *static_cast<GSRuntimeClass* const*>(element);
        const char* recordName = record->name.getConstAddr() ? record->name.getConstAddr() : "";
        return std::strcmp(static_cast<const char*>(key), recordName);
    };
    void* found = std::bsearch(wanted, reg.getElements(), static_cast<size_t>(reg.getCount()),
                               sizeof(GSRuntimeClass*), compare);
    return found ? *static_cast<GSRuntimeClass**>(found) : nullptr;
}

GSObject* GSRuntimeClass::createObjectForName(const GSString& name) {
    GSRuntimeClass* record = getRuntimeClassForName(name);
    if (!record || !record->factory) return nullptr;
    return record->factory();
}
