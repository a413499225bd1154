// GSString.h - the framework's one string type: bytes, a terminating NUL and an encoding tag.
//
// Indices and lengths count bytes. A null string (no bytes at all) differs from an empty one
// (just the NUL). The bytes live in a GSDynaArray<char>, so copies share them until one copy is
// edited. Encoding tags: 0 Windows code page, 1 Mac code page, 2 single-byte read with the
// Windows table, 3 PostScript standard encoding, 100 UTF-8 (the default), 101 UTF-16 in machine
// order. Tags up to 99 are single-byte encodings; 100 and above are Unicode forms.
#pragma once

#include "GSDynaArray.h"

class GSFile;

class GSString {
public:
    enum : unsigned char {
        kWindows = 0,
        kMac = 1,
        kWindowsTable = 2,
        kPostScript = 3,
        kUTF8 = 100,
        kUTF16 = 101,
    };

    GSString() = default;
    GSString(const char* text) { initFromCString(text, 1); }
    GSString(const char* bytes, long length, int encoding) { init(bytes, length, encoding); }
    GSString(const GSString&) = default;
    GSString(GSString&&) noexcept = default;
    GSString& operator=(const GSString&) = default;
    GSString& operator=(GSString&&) noexcept = default;
    // Copies the text; the encoding tag is kept. Null text makes the null string.
    GSString& operator=(const char* text);

    // Takes the text (null: the null string) and tags it UTF-8 when it is valid UTF-8, else Mac.
    // Returns whether it is valid UTF-8.
    bool initFromCString(const char* text, short borrow);
    // `length` bytes of `bytes` tagged `encoding`; a negative length takes the text up to its NUL;
    // a negative encoding tags the text Mac (and -2 UTF-8 when valid).
    void init(const char* bytes, long length, int encoding);

    long getLength() const { return buffer.hasStorage() ? buffer.getSize() - 1 : 0; }
    bool isNull() const { return !buffer.hasStorage(); }
    bool isEmpty() const { return getLength() == 0; }
    const char* getConstAddr() const { return buffer.getData(); }
    char operator[](long i) const;
    unsigned char getEncoding() const { return encoding; }
    void setEncoding(unsigned char tag) { encoding = tag; }

    void clear();
    short _insert(long at, const char* bytes, long n);
    short insert(long at, const char* text);
    short add(char c) { return _insert(getLength(), &c, 1); }
    short add(const char* text);
    short remove(long at, long n);

    bool isValidUTF8() const;
    // Moves a single-byte text into another tag. Text that is plain ASCII means the same in
    // every single-byte tag and UTF-8, so it is retagged; other texts keep their tag until the
    // code-page tables are in place.
    short convertEncoding(int tag);

    // Bytewise three-way comparison (the null string sorts like the empty one).
    int compareValue(const GSString& other) const;
    bool operator==(const GSString& other) const { return compareValue(other) == 0; }
    bool operator==(const char* text) const { return compareValue(GSString(text)) == 0; }

    // The string's file form, in the 64-bit or the classic layout chosen by the file.
    short write(GSFile* file) const;
    short read(GSFile* file);

private:
    short makeRoom(long bytesWithNul);

    GSDynaArray<char> buffer;
    unsigned char encoding = kUTF8;
};
