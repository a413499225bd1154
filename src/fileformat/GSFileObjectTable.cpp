// GSFileObjectTable.cpp - writing and reading object tables.
#include "fileformat/GSFileObjectTable.h"

#include "fileformat/GSFile.h"
#include "fileformat/GSFilePositionRestorer.h"
#include "objects/GSObject.h"

GSFileObjectTable::GSFileObjectTable(long capacity, long grow) : readObjects(capacity, grow) {
    entries.reserve(static_cast<size_t>(capacity > 0 ? capacity : 0));
}

GSFileObjectTable::~GSFileObjectTable() = default;

long GSFileObjectTable::appendEntry(GSObject* object, long position) {
    long index = static_cast<long>(entries.size());
    entries.push_back(Entry{object, position, false});
    if (object) indexOfObject[object] = index;
    if (position >= 0) indexOfPosition[position] = index;
    return index;
}

void GSFileObjectTable::setEntryPosition(long index, long position) {
    entries[index].position = position;
    auto [it, inserted] = indexOfPosition.emplace(position, index);
    if (!inserted && it->second < index) it->second = index;
}

long GSFileObjectTable::findObject(const GSObject* object) const {
    auto it = indexOfObject.find(object);
    return it == indexOfObject.end() ? -1 : it->second;
}

long GSFileObjectTable::findObjectWithPosition(long position) const {
    auto it = indexOfPosition.find(position);
    if (it == indexOfPosition.end()) return -1;
    // An entry's position can change after it was indexed; confirm it still matches.
    if (entries[it->second].position == position) return it->second;
    for (long i = static_cast<long>(entries.size()) - 1; i >= 0; --i)
        if (entries[i].position == position) return i;
    return -1;
}

// ---------------------------------------------------------------- writing

short GSFileObjectTable::writeFilePosition(long value, short compact) {
    if (!use64Bit) return file->writeLong(static_cast<int>(value));
    return compact ? file->writeCompactLongLong(value) : file->writeLongLong(value);
}

short GSFileObjectTable::startWriteObjectTable(GSFile* f, short use64) {
    file = f;
    use64Bit = use64 ? 1 : 0;
    mode = kWriting;
    if (file->writeShort(use64Bit ? 512 : 256)) return 1;
    offsetPosition = file->tell();
    if (offsetPosition < 0) return 1;
    return writeFilePosition(0, 0);
}

short GSFileObjectTable::writeObject(const GSObject* object, short asReference) {
    if (!object) return file->_writeObject(nullptr);
    long index = findObject(object);
    if (index >= 0) {
        if (!asReference && entries[index].position == -1) {
            long position = file->tell();
            if (position < 0) return 1;
            setEntryPosition(index, position);
            return file->_writeObject(object->getObjectToWrite(file));
        }
        if (file->putChar(2)) return 1;
        return file->writeLong(static_cast<int>(index));
    }
    long position = asReference ? -1 : file->tell();
    if (!asReference && position < 0) return 1;
    index = appendEntry(const_cast<GSObject*>(object), position);
    if (asReference) {
        if (file->putChar(2)) return 1;
        return file->writeLong(static_cast<int>(index));
    }
    return file->_writeObject(object->getObjectToWrite(file));
}

short GSFileObjectTable::endWriteObjectTable() {
    long end = file->tell();
    short status = end < 0 || file->seek(offsetPosition, 0) ? 1 : 0;
    if (status == 0) status = writeFilePosition(end - offsetPosition - (use64Bit ? 8 : 4), 0);
    if (file->seek(end, 0)) status = 1;
    if (status == 0) status = file->writeLong(static_cast<int>(entries.size()));
    for (size_t i = 0; i < entries.size() && status == 0; ++i)
        status = writeFilePosition(entries[i].position, 1);
    mode = kIdle;
    return status;
}

// ---------------------------------------------------------------- reading

short GSFileObjectTable::readFilePosition(long* value, short compact) {
    if (!use64Bit) {
        int v;
        if (file->readLong(&v)) return 1;
        *value = v;
        return 0;
    }
    return compact ? file->readCompactLongLong(value) : file->readLongLong(value);
}

short GSFileObjectTable::startReadObjectTable(GSFile* f) {
    file = f;
    mode = kReading;
    short version;
    if (file->readShort(&version) || version > 4096) return 1;
    use64Bit = version >= 512 ? 1 : 0;
    long offset = 0;
    short status = readFilePosition(&offset, 0);
    if (status == 0 && offset < 1 && collecting) return 0;
    long length = file->getLength();
    long here = file->tell();
    if (status || length < 0 || here < 0 || offset < 0 || offset > length - here ||
        file->seek(offset, 1))
        return 1;
    int count;
    if (file->readLong(&count) || count < 0) {
        file->seek(here, 0);
        return 1;
    }
    // Each position takes at least one byte: a count beyond the bytes left is a failed read,
    // before anything is allocated for it.
    if (!file->fitsInFile(count)) {
        file->seek(here, 0);
        return 1;
    }
    entries.reserve(static_cast<size_t>(count));
    short result = 0;
    for (int i = 0; i < count; ++i) {
        long position;
        if (readFilePosition(&position, 1)) {
            result = 1;
            break;
        }
        appendEntry(nullptr, position);
        if (position >= length || position < -1) {
            result = 1;
            break;
        }
    }
    tableEnd = file->tell();
    if (file->seek(here, 0)) result = 1;
    return result;
}

void GSFileObjectTable::keep(GSObject* object) {
    if (object) readObjects.add(object);
}

short GSFileObjectTable::readEntry(long index, GSObject** object) {
    Entry& entry = entries[index];
    if (entry.reading) return 1; // a record that refers back to itself
    entry.reading = true;
    GSObject* read = nullptr;
    short status = file->_readObject(&read);
    // entries may have grown while reading (collecting): take the entry anew
    entries[index].reading = false;
    entries[index].object = read;
    *object = read;
    return status;
}

short GSFileObjectTable::readObject(GSObject** object) {
    *object = nullptr;
    short marker = file->getChar();
    short status;
    if (marker == 1) return 0;
    if (marker == 2) {
        int index;
        if (file->readLong(&index)) return 1;
        if (index == -1) return 0;
        if (index < 0 || index >= static_cast<long>(entries.size())) return 1;
        if (entries[index].object) {
            *object = entries[index].object;
            keep(*object);
            return 0;
        }
        if (entries[index].position < 0) return 0;
        long here = file->tell();
        if (here < 0) return 1;
        short lost = 0;
        {
            GSFilePositionRestorer back(file, here);
            if (file->seek(entries[index].position, 0)) return 1;
            status = readEntry(index, object);
            lost = back.restore();
        }
        if (status == 0) keep(*object);
        return static_cast<short>(status || lost);
    }
    if (marker == 0) {
        long position = file->tell() - 1;
        long index = findObjectWithPosition(position);
        if (index < 0 && collecting) index = appendEntry(nullptr, position);
        if (index < 0) return 1;
        if (file->seek(-1, 1)) return 1;
        if (entries[index].object) {
            *object = entries[index].object;
            status = file->_skipObject();
            keep(*object);
            return status;
        }
        status = readEntry(index, object);
        if (status == 0) keep(*object);
        return status;
    }
    return 1;
}

short GSFileObjectTable::endReadObjectTable() {
    short status = file->seek(tableEnd, 0);
    readObjects.empty();
    mode = kIdle;
    return status;
}
