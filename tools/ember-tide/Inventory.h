// Inventory.h - the objects a document's object table lists, counted by class name.
//
// For scripts that take stock of documents: documents of version 3 and later carry an object
// table from their header on; each entry names the file position of an object record, whose
// class name is read there without reading (or knowing) the object's body.
#pragma once

#include <map>
#include <string>

namespace tool {

// Class names are short identifiers in every real document. A name that could not be shown as
// it is (longer than 64 bytes, not UTF-8, control characters) is counted under this one.
inline constexpr const char* kUnshownClassName = "<invalid>";

struct ObjectInventory {
    bool present = false; // the document's header starts an object table
    long entries = 0;     // entries of the table
    long unreadable = 0;  // entries without a readable record (never written, or damaged)
    std::map<std::string, long> classes;
};

ObjectInventory readObjectInventory(const std::string& path);

} // namespace tool
