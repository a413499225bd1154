// GSFileSpec.cpp - path-based file specifications.
#include "GSFileSpec.h"

#include "GSFile.h"

#include <cstring>
#include <sys/stat.h>

const GSFileSpec GSFileSpec::null;
const GSFileSpec gs_invalid_filespec;

short GSFileSpec::localSetPathname(const GSString& path) {
    // A spec outlives the text it was named with (callers pass std::string::c_str() and
    // literals alike): keep a copy of our own, never a borrowed pointer.
    pathname = path.isNull() ? GSString() : GSString::withCopyOf(path.getConstAddr());
    pathname.setEncoding(path.getEncoding());
    if (GSFile::hasTrailingPathDivider(pathname)) pathname.add("a");
    filename = GSFile::getFilename(pathname);
    return pathname.isEmpty() ? 1 : 0;
}

GSString GSFileSpec::getPathname(short full) const {
    if (full) return pathname;
    GSString folder = pathname;
    long cut = folder.getLength();
    while (cut > 0 && folder[cut - 1] != '/') --cut;
    folder.remove(cut, -1);
    GSFile::addPathDividerIfNeeded(&folder);
    return folder;
}

GSString GSFileSpec::getFilename(short withExtender) const {
    if (withExtender) return filename;
    GSString name = filename;
    GSFile::changeFileExtender(&name, GSString(""));
    return name;
}

GSString GSFileSpec::getExtender() const { return getExtenderForFilename(pathname); }

long GSFileSpec::getExtenderPositionForFilename(const GSString& name) {
    long length = name.getLength();
    for (long i = length - 1; i >= 0; --i) {
        if (name[i] == '.') return i;
        if (name[i] == '/') break;
    }
    return length;
}

GSString GSFileSpec::getExtenderForFilename(const GSString& name) {
    long at = getExtenderPositionForFilename(name);
    return GSString(name.getConstAddr() ? name.getConstAddr() + at : "", name.getLength() - at,
                    name.getEncoding());
}

short GSFileSpec::exists() const {
    struct stat st;
    return isValid() && ::stat(pathname.getConstAddr(), &st) == 0 ? 1 : 0;
}

short GSFileSpec::operator==(const GSFileSpec& other) const {
    return pathname == other.pathname ? 1 : 0;
}
