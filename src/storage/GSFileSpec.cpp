// GSFileSpec.cpp - the location of a file spec: URL, name, paths, parent, state and file form.
#include "storage/GSFileSpec.h"

#include "fileformat/GSFile.h"
#include "fileformat/GSFormatNumbers.h"
#include "objects/GSObjectDictionary.h"
#include "storage/GSFileState.h"
#include "storage/GSURL.h"

const GSFileSpec GSFileSpec::null;
const GSFileSpec gs_invalid_filespec;

namespace {

// A string of our own with the same bytes and tag: a spec outlives the texts it is named with
// (callers pass literals and std::string::c_str() alike), so it never keeps a borrowed one.
GSString ownCopy(const GSString& text) {
    GSString copy;
    copy.setEncoding(text.getEncoding());
    if (text.getLength() > 0) copy.init(text.getConstAddr(), text.getLength(), text.getEncoding());
    return copy;
}

const void* handle(const __CFURL* url) {
    return static_cast<const void*>(url);
}

} // namespace

GSFileSpec::GSFileSpec() = default;

GSFileSpec::GSFileSpec(const GSString& path) {
    localSetPathname(path);
}

GSFileSpec::GSFileSpec(const GSFileSpec& other) {
    other.copyData(this, 1);
}

GSFileSpec::GSFileSpec(void* url) {
    setCFURLRef(static_cast<const __CFURL*>(url));
}

GSFileSpec& GSFileSpec::operator=(const GSFileSpec& other) {
    if (this != &other) other.copyData(this, 1);
    return *this;
}

GSFileSpec::~GSFileSpec() = default;

void GSFileSpec::initVars() {
    filename.clear();
    folderPath.clear();
    pathname.clear();
    url = nullptr;
}

short GSFileSpec::setCFURLRef(const __CFURL* newURL) {
    if (!newURL) {
        if (this != &null) *this = null;
        return 0;
    }
    GSIdPointer keep;
    keep.attach(const_cast<void*>(handle(newURL))); // newURL may be the URL we hold
    initVars();
    url = keep;
    filename = GSURLGetLastPathComponent(url.get());
    return 0;
}

const __CFURL* GSFileSpec::createCFURLRef() const {
    if (url.isEmpty() && !pathname.isEmpty()) {
        // A spec named by a path that gave no URL then may give one now; the spec keeps what
        // it learns, as it does with its path caches.
        const_cast<GSFileSpec*>(this)->localSetPathname(GSString(pathname));
    }
    if (url.isEmpty()) return nullptr;
    url.retain();
    return static_cast<const __CFURL*>(url.get());
}

short GSFileSpec::localSetPathname(const GSString& path) {
    GSString given = ownCopy(path);
    initVars();
    GSString named = given;
    if (GSFile::hasTrailingPathDivider(named)) named.add("a");
    GSIdPointer made;
    made = GSURLCreateWithFilePath(named, 0, 1);
    if (!made.isEmpty()) {
        setCFURLRef(static_cast<const __CFURL*>(made.get()));
        return 0;
    }
    pathname = given;
    filename = GSFile::getFilename(given);
    return 1;
}

GSString GSFileSpec::getPathname(short full) const {
    if (full) {
        if (pathname.isEmpty() && !url.isEmpty()) pathname = GSURLGetPathname(url.get());
        return pathname;
    }
    if (folderPath.isEmpty()) {
        GSString folder = getParent().getPathname(GSFullPath);
        GSFile::addPathDividerIfNeeded(&folder);
        folderPath = folder;
    }
    return folderPath;
}

GSString GSFileSpec::getFilename(short withExtender) const {
    if (withExtender) return filename;
    GSString name = filename;
    GSFile::changeFileExtender(&name, GSString::null);
    return name;
}

void GSFileSpec::setFilename(const GSString& name) {
    GSString own = ownCopy(name);
    if (url.isEmpty()) {
        initVars();
        filename = own;
        return;
    }
    GSIdPointer folder, renamed;
    folder = GSURLCreateByDeletingLastPathComponent(url.get());
    renamed = GSURLCreateByAppending(folder.get(), own);
    if (!renamed.isEmpty()) {
        setCFURLRef(static_cast<const __CFURL*>(renamed.get()));
        return;
    }
    filename = own;
    pathname.clear();
}

GSFileSpec GSFileSpec::getParent() const {
    GSFileSpec parent;
    if (url.isEmpty() || GSURLIsRoot(url.get())) return parent;
    GSIdPointer folder;
    folder = GSURLCreateParentURL(url.get());
    parent.setCFURLRef(static_cast<const __CFURL*>(folder.get()));
    return parent;
}

short GSFileSpec::isValid() const {
    const __CFURL* made = createCFURLRef();
    if (!made) return 0;
    GSIdRelease(handle(made));
    return 1;
}

short GSFileSpec::exists() const {
    GSFileState state;
    return fillState(&state) == 0 ? 1 : 0;
}

short GSFileSpec::fillState(GSFileState* state) const {
    state->valid = 0;
    if (url.isEmpty()) return 1;
    return GSURLFillFileState(url.get(), state);
}

short GSFileSpec::operator==(const GSFileSpec& other) const {
    return GSURLIsEqual(url.get(), other.url.get());
}

short GSFileSpec::isLink(GSFileSpec* target, int mode, short* isFolder) const {
    GSIdPointer resolved;
    short folder = 0;
    // Option 1 resolves without mounting volumes; bit 1 of the mode allows mounting.
    GSURLResolveLinkOrAlias(url.get(), (mode & 1) ? 0 : 1, &resolved, &folder);
    if (resolved.isEmpty()) return 0;
    if (folder) {
        GSIdPointer item;
        item = GSURLCreateByAppending(resolved.get(), GSString("a"));
        resolved = item;
    }
    if (target) target->setCFURLRef(static_cast<const __CFURL*>(resolved.get()));
    if (isFolder) *isFolder = folder;
    return 1;
}

void GSFileSpec::sendErrorMessage(const GSString& /*message*/, const GSString& /*detail*/) const {
    // Reporting belongs to the application around the framework; this system has none.
}

short GSFileSpec::writeAdditionalInfo(const GSFileSpec* /*written*/) {
    return 0;
}

void GSFileSpec::copyData(GSFileSpec* target, short withDictionary) const {
    if (target == this) {
        if (!withDictionary) target->dictionary.reset();
        return;
    }
    target->dictionary.reset();
    if (withDictionary && dictionary) {
        auto* copy = new GSObjectDictionary(*dictionary);
        target->dictionary.reset(copy);
    }
    target->url = url;
    target->filename = filename;
    target->folderPath = folderPath;
    target->pathname = pathname;
}

short GSFileSpec::write(GSFile* file) const {
    return getPathname(GSFullPath).write(file);
}

short GSFileSpec::read(GSFile* file) {
    GSString path;
    short status = path.read(file);
    if (status == 0) localSetPathname(path);
    return status;
}
