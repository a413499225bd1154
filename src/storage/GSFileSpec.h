// GSFileSpec.h - names a file by its path.
//
// A value type. This form names files on disk by POSIX path only; the URL, the option
// dictionary and the memory file specifications join it with the storage layer.
#pragma once

#include "GSString.h"

class GSFileSpec {
public:
    GSFileSpec() = default;
    explicit GSFileSpec(const GSString& path) { localSetPathname(path); }

    // Names the item at `path`; a path ending in "/" names the item "a" inside that folder.
    short localSetPathname(const GSString& path);
    // full: the whole path; otherwise the folder's path with a trailing "/".
    GSString getPathname(short full = 1) const;
    GSString getFilename(short withExtender = 1) const;
    GSString getExtender() const;
    short isValid() const { return pathname.isEmpty() ? 0 : 1; }
    short exists() const;
    short operator==(const GSFileSpec& other) const;

    static GSString getExtenderForFilename(const GSString& name);
    static long getExtenderPositionForFilename(const GSString& name);

    static const GSFileSpec null;

private:
    GSString filename;
    GSString pathname;
};

extern const GSFileSpec gs_invalid_filespec;
