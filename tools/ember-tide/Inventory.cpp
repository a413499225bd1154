// Inventory.cpp - counting the classes of the records an object table points at.
#include "Inventory.h"

#include "GSFile.h"
#include "GSFileObjectTable.h"
#include "GSFileSpec.h"
#include "GSGetThumbnail.h"
#include "GSString.h"

#include <exception>

namespace tool {

namespace {

// The class name of the record at `position`; false when there is none (not an in-place record,
// or a name that cannot be read).
bool readClassNameAt(GSFile* file, long position, std::string* name) {
    if (position < 0 || file->seek(position, 0)) return false;
    if (file->getChar() != 0) return false;
    GSString className;
    if (className.read(file) || className.isEmpty()) return false;
    className.convertEncoding(GSString::kUTF8); // names of the Mac code page, as read
    name->assign(className.getConstAddr(), static_cast<size_t>(className.getLength()));
    return true;
}

} // namespace

ObjectInventory readObjectInventory(const std::string& path) {
    ObjectInventory inventory;
    GSFile file(GSFileSpec(GSString(path.c_str(), -1, GSString::kUTF8)), 0);
    if (file.open()) return inventory;
    try {
        short version = 0, merging = 0;
        if (EmberTideDataReadHeader(&file, &version, &merging, nullptr) || !merging)
            return inventory;
        const GSFileObjectTable* table = file.getObjectTable();
        inventory.present = table != nullptr;
        if (table) {
            inventory.entries = table->getCount();
            std::string name;
            for (long i = 0; i < inventory.entries; ++i) {
                if (readClassNameAt(&file, table->getPositionAt(i), &name))
                    ++inventory.classes[name];
                else
                    ++inventory.unreadable;
            }
        }
        file.stopObjectMergingRead();
    } catch (const std::exception&) {
        // A table that cannot be ended is a damaged document: whatever was counted stands.
    }
    return inventory;
}

} // namespace tool
