// Inventory.cpp - counting the classes of the records an object table points at.
//
// The table is a stranger's list of positions: it may name one record thousands of times, or
// point into the middle of a long class name at every few bytes, where each byte could again
// look like the start of a record whose name runs to the end of the file. Reading a name per
// entry would then cost entries x name length. So positions are read in file order, each
// distinct one once (equal entries share its result), and a position that falls inside bytes
// already read as a name is no record: records never overlap their names, however they nest.
// Every byte of the file is read as a name at most once, so the work grows with the file.
#include "Inventory.h"

#include "PrintableText.h"

#include "fileformat/GSFile.h"
#include "fileformat/GSFileObjectTable.h"
#include "storage/GSFileSpec.h"
#include "text/GSString.h"
#include "thumbnail/GSGetThumbnail.h"

#include <algorithm>
#include <exception>
#include <vector>

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
            std::vector<long> positions(static_cast<size_t>(inventory.entries));
            for (long i = 0; i < inventory.entries; ++i)
                positions[static_cast<size_t>(i)] = table->getPositionAt(i);
            std::sort(positions.begin(), positions.end());
            long readUpTo = 0; // the end of what has been read as a record's marker and name
            std::string name;
            for (auto at = positions.begin(); at != positions.end();) {
                const auto same = std::upper_bound(at, positions.end(), *at);
                const long count = same - at;
                const bool outsideNames = *at >= readUpTo;
                if (outsideNames && readClassNameAt(&file, *at, &name))
                    inventory.classes[isPlainName(name) ? name : kUnshownClassName] += count;
                else
                    inventory.unreadable += count;
                if (outsideNames) readUpTo = std::max(*at + 1, file.tell());
                at = same;
            }
        }
        file.stopObjectMergingRead();
    } catch (const std::exception&) {
        // A table that cannot be ended is a damaged document: whatever was counted stands.
    }
    return inventory;
}

} // namespace tool
