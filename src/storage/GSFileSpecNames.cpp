// GSFileSpecNames.cpp - extenders of file names and hidden temporary names.
//
// An extender runs from the last "." of a name to its end. In a path a "." before the last "/"
// belongs to a folder and starts none. File-type lists, as open and save panels take them, are
// entries "*.ext:Description" separated by ";"; the first entry's pattern gives the extender.
#include "fileformat/GSFile.h"
#include "fileformat/GSFormatNumbers.h"
#include "storage/GSFileSpec.h"
#include "storage/GSFileState.h"
#include "storage/GSRandom.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>

GSString GSFileSpec::getExtender() const {
    return getExtenderForFilename(getPathname(GSFullPath));
}

long GSFileSpec::getExtenderPositionForFilename(const GSString& name) {
    long dot = name.findCharRev('.');
    long slash = name.findCharRev('/');
    return dot >= 0 && dot > slash ? dot : name.getLength();
}

GSString GSFileSpec::getExtenderForFilename(const GSString& name) {
    long at = getExtenderPositionForFilename(name);
    GSString tail = name.getSubstring(at, name.getLength() - at);
    tail.setEncoding(name.getEncoding());
    return tail;
}

GSString GSFileSpec::getExtenderListFromString(const GSString& list) {
    GSString patterns(list.getConstAddr(), list.getLength(), list.getEncoding());
    for (long colon = patterns.findCharRev(':'); colon >= 0; colon = patterns.findCharRev(':')) {
        long end = patterns.findChar(';', colon);
        patterns.remove(colon, end < 0 ? -1 : end - colon);
    }
    return patterns;
}

GSString GSFileSpec::getExtenderFromString(const GSString& list) {
    GSString first = getExtenderListFromString(list);
    if (first.getLength() > 0 && first[0] == '*') first.remove(0, 1);
    long end = first.findChar(';', 0);
    if (end >= 0) first.remove(end, -1);
    return first;
}

void GSFileSpec::setExtenderOfFilename(const GSString& list, GSString* name) {
    GSFile::changeFileExtender(name, getExtenderFromString(list));
}

void GSFileSpec::setExtender(const GSString& list) {
    GSString name(filename.getConstAddr(), filename.getLength(), filename.getEncoding());
    setExtenderOfFilename(list, &name);
    setFilename(name);
}

GSString GSFileSpec::getTemporaryFilename() {
    char name[14] = "tmp";
    for (int i = 3; i < 13; ++i) {
        unsigned r = GSRandom32() % 36;
        name[i] = static_cast<char>(r < 10 ? '0' + r : 'a' + (r - 10));
    }
    name[13] = 0;
    return GSString(name, 13, GSString::kUTF8);
}

void GSFileSpec::createTemporaryFilename(const GSString& extender) {
    GSString previous;
    for (;;) {
        GSString name = getTemporaryFilename();
        // The generator's state is shared: should it repeat itself, the C library's one decides.
        if (name == previous) name.addLong(std::rand(), 0);
        name.add(extender);
        if (name[0] != '.') name.insert(0, '.'); // hidden
        setFilename(name);
        previous = name;
        GSFileState state;
        if (fillState(&state)) return; // no such item: the name is free
    }
}

int GSFileSpec::createTemporaryFile(const GSString& extender, int openFlags) {
    for (int attempt = 0; attempt < kTemporaryFileTries; ++attempt) {
        createTemporaryFilename(extender);
        GSString path = getPathname(GSFullPath);
        if (path.isEmpty()) {
            errno = ENOENT;
            return -1;
        }
        int fd = ::open(path.getConstAddr(), openFlags | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                        0666);
        if (fd >= 0 || errno != EEXIST) return fd;
    }
    errno = EEXIST;
    return -1;
}
