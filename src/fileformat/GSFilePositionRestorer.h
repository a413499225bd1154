// GSFilePositionRestorer.h - puts a file back where it was after a detour elsewhere in it.
//
// The chunk writer goes back to fill in lengths it could not know in advance, and the object
// table reader follows a reference to an object written earlier; both then carry on from where
// they were. restore() says whether the seek back worked, so that the caller can fail with a
// status (a writer that carried on from the wrong place would damage the file); the destructor
// restores, without a status, when a scope is left early.
#pragma once

#include "fileformat/GSFile.h"

class GSFilePositionRestorer {
public:
    GSFilePositionRestorer(GSFile* file, long position) : file(file), position(position) {}
    ~GSFilePositionRestorer() noexcept {
        if (!restored) restore();
    }
    GSFilePositionRestorer(const GSFilePositionRestorer&) = delete;
    GSFilePositionRestorer& operator=(const GSFilePositionRestorer&) = delete;

    // 0 when the file is back at the position.
    short restore() {
        restored = true;
        return file->seek(position, 0);
    }

private:
    GSFile* file;
    long position;
    bool restored = false;
};
