// GSFileObjectTable.h - the table behind object merging.
//
// While writing, an object that several owners share is written once in place and referenced by
// its index everywhere else; the table (count, then each record's file position) goes at the
// end, and the header written where merging started points forward to it. While reading, the
// table is read first, so that references can be followed to their records; every object handed
// out is kept alive by the table until merging stops. The table also carries the document's
// use64Bit choice (compact counts, byte-form chunks).
//
// Look-ups give exactly "the last entry that matches", as a backward linear search would, but
// through hash indexes, so writing or reading n objects costs O(n).
#pragma once

#include "objects/GSArray.h"

#include <unordered_map>
#include <vector>

class GSFile;
class GSObject;

class GSFileObjectTable {
public:
    enum Mode : short { kIdle = 0, kReading = 1, kWriting = 2 };

    GSFileObjectTable(long capacity, long grow);
    ~GSFileObjectTable();

    short startWriteObjectTable(GSFile* file, short use64Bit);
    short writeFilePosition(long value, short compact);
    short writeObject(const GSObject* object, short asReference);
    long findObject(const GSObject* object) const;
    short endWriteObjectTable();

    short startReadObjectTable(GSFile* file);
    short readFilePosition(long* value, short compact);
    short readObject(GSObject** object);
    long findObjectWithPosition(long position) const;
    short endReadObjectTable();

    short getUse64Bit() const { return use64Bit; }
    long getCount() const { return static_cast<long>(entries.size()); }
    long getPositionAt(long index) const { return entries[index].position; }
    void setCollecting(bool on) { collecting = on; }

private:
    struct Entry {
        GSObject* object;
        long position;
        bool reading; // its record is being read: a reference back to it is a cycle
    };

    long appendEntry(GSObject* object, long position);
    void setEntryPosition(long index, long position);
    short readEntry(long index, GSObject** object);
    void keep(GSObject* object);

    std::vector<Entry> entries;
    std::unordered_map<const GSObject*, long> indexOfObject;
    std::unordered_map<long, long> indexOfPosition;
    GSFile* file = nullptr;
    long offsetPosition = 0; // writing: where the forward offset goes
    long tableEnd = 0;       // reading: the position just after the table
    short use64Bit = 0;
    Mode mode = kIdle;
    ObjectArray readObjects;
    bool collecting = false;
};
