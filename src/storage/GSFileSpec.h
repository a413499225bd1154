// GSFileSpec.h - names a file (or a block of memory standing in for one) everywhere in the system.
//
// A value type: a file URL when one can be made (a handle of the file-system layer, GSURL.h),
// else the path text, plus an optional dictionary of options that travels with the name (safety
// mode, memory data, format version; the keys are in GSFileSpecKeys.h). The file name and the
// two paths are strings of the spec's own, the full path a cache when there is a URL. A copy
// shares the URL and the strings but gets its own copy of the dictionary (whose values it
// shares, as dictionaries do). A folder is named through an item "a" inside it, so that its
// spec has a parent and a file name like any other. In a file the spec is its full path in
// GSString's file form; the dictionary is not stored.
#pragma once

#include "objects/GSObjectRef.h"
#include "storage/GSIdPointer.h"
#include "text/GSString.h"

class GSFile;
class GSObjectDictionary;
struct GSFileState;
struct __CFURL; // a file URL of the platform layer (Core Foundation's type on Apple platforms)

class GSFileSpec {
public:
    GSFileSpec();
    // The spec of a file URL (setCFURLRef).
    explicit GSFileSpec(void* url);
    // The spec of a path (localSetPathname). A C text must be made a GSString first, with the
    // tag it is in: a path the file system gave is bytes, GSString(path, -1, GSString::kUTF8).
    explicit GSFileSpec(const GSString& path);
    GSFileSpec(const char*) = delete; // would otherwise be taken for a URL handle
    GSFileSpec(const GSFileSpec& other);
    GSFileSpec& operator=(const GSFileSpec& other);
    ~GSFileSpec();

    static const GSFileSpec null;

    // ---------------------------------------------------------------- location
    // Clears the three strings and the URL; the dictionary stays.
    void initVars();
    // Takes `url` (a reference of its own) and its last component as the file name; null copies
    // GSFileSpec::null in. 0.
    short setCFURLRef(const __CFURL* url);
    // A new reference to the URL (made from the path first when there is none), or null.
    const __CFURL* createCFURLRef() const;
    // Names the item at `path`; a path ending in "/" names the item "a" inside that folder.
    // 0 with a URL; 1 when none could be made (the path text is kept as given).
    short localSetPathname(const GSString& path);
    // full: the whole path; otherwise the folder's path with a trailing "/".
    GSString getPathname(short full) const;
    GSString getFilename(short withExtender) const;
    // Replaces the last component, keeping the folder.
    void setFilename(const GSString& name);
    // The containing folder's spec; empty for the root or without a URL.
    GSFileSpec getParent() const;
    short isValid() const;
    short exists() const;
    // Clears the state's validity and fills it; 1 without a URL or when the item is unreachable.
    short fillState(GSFileState* state) const;
    // The two URLs are equal (dictionaries play no part).
    short operator==(const GSFileSpec& other) const;
    // When the item is a symbolic link (or, on Apple platforms, an alias) that leads elsewhere:
    // `target` names what it leads to (a folder through its item "a"), `*isFolder` says whether
    // it is a folder, and the result is 1. Bit 1 of `mode` allows mounting volumes.
    short isLink(GSFileSpec* target, int mode, short* isFolder) const;
    // ---------------------------------------------------------------- changing the disk
    // (GSFileSpecChanges.cpp) Statuses 0 or 1; `detail`, where given, receives the platform's
    // error text and is emptied on success. Deletes the item (no trash).
    short remove(GSString* detail) const;
    // Moves the item to `newName` in its folder, never over an existing item; on success the
    // spec names it there.
    short rename(const GSString& newName, GSString* detail);
    // Puts this spec's item (the new content) in `target`'s place in one platform step. With
    // `removeOld` the old content is deleted and this spec's name is gone; without, the old
    // content ends up under this spec's name, so that the two have exchanged places. The
    // target keeps its hidden flag.
    short exchangeWith(const GSFileSpec& target, short removeOld, GSString* detail);

    // Hooks for the wider application: reporting, and work after a file was written.
    void sendErrorMessage(const GSString& message, const GSString& detail) const;
    short writeAdditionalInfo(const GSFileSpec* written);

    // ---------------------------------------------------------------- extenders
    // An extender is the tail of a file name from its last "." on, the dot included.
    GSString getExtender() const;
    // Position of the last "." that is not before the last "/"; else the length.
    static long getExtenderPositionForFilename(const GSString& name);
    static GSString getExtenderForFilename(const GSString& name);
    // A file-type list "*.ext:Kind;*.alt:Other" without its descriptions: "*.ext;*.alt".
    static GSString getExtenderListFromString(const GSString& list);
    // The first extender of a file-type list: ".ext".
    static GSString getExtenderFromString(const GSString& list);
    static void setExtenderOfFilename(const GSString& list, GSString* name);
    void setExtender(const GSString& list);

    // ---------------------------------------------------------------- temporary names
    // "tmp" and ten random letters or digits.
    static GSString getTemporaryFilename();
    // Gives the spec a hidden temporary name with `extender` in its folder, one that no item has.
    void createTemporaryFilename(const GSString& extender);
    // Gives the spec a hidden temporary name as above and creates the file there exclusively
    // (O_CREAT | O_EXCL | O_NOFOLLOW with `openFlags`, mode 0666 less the umask): a name that
    // another process took between the probe and the creation, or a link planted at it, is
    // never opened, removed or reused; the next name of the sequence is tried instead, at most
    // kTemporaryFileTries times. The names alone cannot be trusted: the generator starts alike
    // in every process. Returns the open descriptor, or -1 with errno set (EEXIST after the
    // last try).
    static constexpr int kTemporaryFileTries = 100;
    int createTemporaryFile(const GSString& extender, int openFlags);

    // ---------------------------------------------------------------- options
    GSObjectDictionary* getDictionary() const { return dictionary.get(); }
    GSObjectDictionary* getOrCreateDictionary();
    // The text of a string-key value under `key`; empty when there is none.
    GSString getDictionaryString(const GSString& key) const;
    // The number of a number-key value under `key`; `defaultValue` when there is none.
    int getDictionaryLong(const GSString& key, int defaultValue) const;
    // Copies this spec into `target`, with or without the dictionary.
    void copyData(GSFileSpec* target, short withDictionary) const;
    // Whether the spec names memory rather than a file: mode 1 asks for data present, mode 0
    // and 2 for a memory file to write (see GSFileSpecOptions.cpp).
    short isMemoryFileSpec(short mode) const;

    // ---------------------------------------------------------------- file form
    short write(GSFile* file) const;
    short read(GSFile* file);

private:
    GSObjectRef<GSObjectDictionary> dictionary;
    GSIdPointer url;
    GSString filename;
    mutable GSString folderPath; // cache: the folder's path with a trailing "/"
    mutable GSString pathname;   // cache with a URL, the only location without one
};

// What a stream worker's working spec becomes after close.
extern const GSFileSpec gs_invalid_filespec;
