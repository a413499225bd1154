// GSString.h - the framework's one string type: bytes, a terminating NUL and an encoding tag.
//
// Indices and lengths count bytes. A null string (no bytes at all) differs from an empty one
// (just the NUL). Encoding tags: 0 Windows code page, 1 Mac code page, 2 single-byte read with
// the Windows table, 3 PostScript standard encoding, 100 UTF-8 (the default), 101 UTF-16 units
// in machine order. Tags up to 99 are single-byte encodings; 100 and above are Unicode forms.
//
// Who owns the bytes depends on the storage form, and copies never allocate:
// - null: no bytes;
// - borrowed: a NUL-terminated text owned by someone else (GSString("literal") borrows), with
//   its length cached on first use. The text must outlive the string and all its copies; use
//   withCopyOf for a text that does not live that long;
// - inline: up to 46 bytes of text and their NUL inside the object itself;
// - buffer: a GSArrayData<char> shared by reference count among copies. A buffer whose count is
//   2 or more is never written: every editing operation first makes the string's bytes its own
//   (createOwnData), inline up to 46 bytes, else in a buffer that grows by doubling.
// A string is used by one thread at a time; copies on other threads may share a buffer.
#pragma once

#include "objects/GSArrayData.h"

#include <cstring>

class GSFile;
class GSNumericStringTable;
class GSStringTable;
// The platform conversions exist on Apple platforms only (GSString_apple.mm); the Linux syntax
// check of the Apple sources (tests/apple-headers) declares them too.
#if defined(__APPLE__) || defined(GS_APPLE_SYNTAX_CHECK)
#define GS_STRING_PLATFORM_CONVERSIONS 1
struct __CFString; // CFStringRef is const __CFString*
#ifdef __OBJC__
@class NSString;
#endif
#endif

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
    // Bytes inside the object, NUL included: texts of up to 46 bytes need no allocation.
    static constexpr long kInlineSize = 47;

    static const GSString null;
    // The texts that load() and GSString(int) look up by number, and texts looked up by text.
    static GSNumericStringTable _numericStringTable;
    static GSStringTable _stringTable;

    // ---------------------------------------------------------------- construction
    // The null string, tagged UTF-8.
    constexpr GSString() noexcept : data(nullptr), payload{}, storage(kBuffer), encoding(kUTF8) {}
    // Borrows `text` (see above), tagged UTF-8 when it is valid UTF-8, else Mac.
    GSString(const char* text) : GSString() { initFromCString(text, 1); }
    GSString(const char* bytes, long length, int encoding) : GSString() {
        init(bytes, length, encoding);
    }
    // The text number `id` of _numericStringTable; 0 gives the null string.
    explicit GSString(int id);
    GSString(const GSString& other) noexcept;
    GSString(GSString&& other) noexcept;
    ~GSString() { releaseData(); }
    GSString& operator=(const GSString& other) noexcept;
    GSString& operator=(GSString&& other) noexcept;
    // Copies the text (null: the null string); the encoding tag is not changed.
    GSString& operator=(const char* text);

    // An own copy of a C text, tagged as initFromCString tags it.
    static GSString withCopyOf(const char* text);

    // With `borrow` set and a text, borrows it; otherwise copies it (null: the null string).
    // Then tags the string Mac, or UTF-8 when it is valid UTF-8, and returns that validity.
    bool initFromCString(const char* text, short borrow);
    // Tags the string `encoding` (Mac when negative) and clears it; with bytes, a negative
    // length takes a copy of the C text (initFromCString, then the tag again unless negative),
    // a positive one inserts that many bytes; with -2 such bytes are tagged UTF-8 when valid.
    void init(const char* bytes, long length, int encoding);
    // UTF-16 units (count < 0: up to a 0 unit) as UTF-8. Unpaired surrogates become spaces; a
    // high surrogate followed by anything but a low one takes that unit with it.
    void init(const unsigned short* utf16, long count);
    // The text number `id` of _numericStringTable; 0 clears.
    void load(unsigned id);

    // ---------------------------------------------------------------- access
    long getLength() const;
    // 47 inline, length + 1 borrowed, the buffer's capacity, 0 for the null string.
    long getSize() const;
    // The bytes, or null for the null string.
    const char* getConstAddr() const;
    // Byte i; 0 for the null string and outside 0..length.
    char operator[](long i) const;
    bool isNull() const { return getConstAddr() == nullptr; }
    bool isEmpty() const { return getLength() == 0; }
    unsigned char getEncoding() const { return encoding; }
    void setEncoding(unsigned char tag) { encoding = tag; }
    // True when every character reads strictly as UTF-8 (an empty text is valid, null is not).
    bool isValidUTF8() const;

    // ---------------------------------------------------------------- making room
    // Makes the bytes this string's own, with room for `needed` bytes (NUL included): inline
    // up to 47, else a buffer of `proposed` bytes, reusing an unshared buffer that is large
    // enough. `keep` preserves the text. 0, or 1 (string cleared) when the bytes cannot be had.
    short createOwnData(long needed, long proposed, short keep);
    // Inline form for size <= 47, else a new buffer of `size` bytes; `keep` copies the text.
    short createDataWithSize(long size, short keep);
    // Reserves room for n bytes (nothing below 48, or when an unshared buffer is large enough).
    short setSize(long n);

    // ---------------------------------------------------------------- editing (0 = success)
    // An unshared buffer is kept empty; anything else becomes the null string. Keeps the tag.
    void clear();
    // Inserts n bytes at byte `at` (0..length).
    short _insert(long at, const char* bytes, long n);
    short insert(long at, char c) { return _insert(at, &c, 1); }
    // Inserts a C text, the position clamped into 0..length.
    short insert(long at, const char* text);
    short add(char c) {
        if (hasRoomInOwnBuffer(1)) {
            char* end = data->elements + data->size - 1;
            end[0] = c;
            end[1] = 0;
            ++data->size;
            return 0;
        }
        return _insert(getLength(), &c, 1);
    }
    short add(const char* text);
    // Appends `other`; with different tags the higher one (as a signed byte) wins and the other
    // side is converted to it first, so UTF-8 appended to single-byte text makes it UTF-8.
    short add(const GSString& other);
    GSString& operator+=(const GSString& other) {
        add(other);
        return *this;
    }
    GSString operator+(const GSString& other) const;
    // Removes n bytes at `at` (n < 0: to the end).
    short remove(long at, long n);

    // ---------------------------------------------------------------- characters
    // Appends one code point in the string's encoding; an empty single-byte string becomes
    // UTF-8 first. 0 when appended or deliberately dropped, 1 when not representable.
    short addUnicodeChar(unsigned code);
    // Appends one code point to single-byte text through a from-Unicode table (GSCodePages.h):
    // ASCII as is, a combining mark merged into the previous letter, a table hit, else Latin-1.
    short addCharForUnicode(const unsigned short* table, int entries, unsigned short code);
    // Copies the whole character at byte `at` to out's end, or at `outAt`; returns the index
    // past it (`at` itself at or past the end).
    long addCharToString(long at, GSString* out) const { return insertCharInString(at, -1, out); }
    long insertCharInString(long at, long outAt, GSString* out) const;

    // Index rules. Byte counts of the character at i: 1 in single-byte text, else what its lead
    // byte announces.
    long getCharCountForIndex(long i) const;
    // The greatest j <= i whose byte is not a UTF-8 continuation byte (i itself for i < 1).
    long getValidStartIndexForIndexBasic(long i) const;
    // In UTF-8 text the start of the character at i, with `withMarks` the start of the base
    // character of its cluster; i itself in other encodings.
    long getValidStartIndexForIndex(long i, short withMarks) const;
    // In UTF-8 text the last byte of the character at i, with `withMarks` of its cluster.
    long getValidEndIndexForIndex(long i, short withMarks) const;
    // The code point at byte i (bytes from 127 up through the tag's table, or read leniently as
    // UTF-8); `next`, when given, receives the index past it.
    unsigned getUnicodeChar(long i, long* next) const;
    // The precomposed code point of a letter and a combining mark (U+0300-036F), or 0.
    static unsigned getCombinationWithDiacriticalMark(unsigned base, unsigned mark);

    // Re-encodes the text in tag `target` (GSCodePages.h). 0, or 1 when characters that the
    // target cannot represent were dropped.
    short convertEncoding(int target);

    // ---------------------------------------------------------------- numbers
    // (GSStringNumbers.cpp) Appends value in decimal. |width| is a field width counting digits
    // only, never the sign: a negative width pads with zeros after the sign, a positive one with
    // spaces before it.
    short addLong(int value, int width);
    short addLongLong(long long value, int width);
    void setLongValue(int value);
    // Appends value with at most `decimals` fractional digits and no trailing zeros, rounded by
    // 0.49 units of the last place. *scale (may be null) receives minus the number of fractional
    // places before the zeros were cut. 0, or 1 when an insert failed.
    short addCompactDouble(double value, int decimals, int* scale);
    short addCompactFloat(float value, int decimals, int* scale);
    // Removes trailing bytes c; for '.' also a trailing ellipsis (UTF-8 U+2026, Mac byte 0xC9).
    void removeTrailingChar(char c);
    // The first index at or after `index` that is not white space (3, 7, 9, 10, 12, 13, 32,
    // U+200B, each with its combining marks).
    long skipWhiteSpace(long index) const;
    // Reads "-"? "+"? digits at `index`. Accumulation stops once the value reaches 214748364,
    // later digits are consumed but ignored. *end: past the last digit consumed; *digitsEnd:
    // past the last digit added. Either pointer may be null.
    int getBasicLongValue(long index, long* end, long* digitsEnd) const;
    int getLongValue(long index, long* end) const;

    // ---------------------------------------------------------------- comparison
    // (GSStringCompare.cpp) The orderings give differences, first minus second, not only signs.
    // Full ordering: empty and null first and equal (-1, 1 or 0 against them); single-byte
    // texts of one tag by bytes (the first unequal unsigned bytes, else the lengths),
    // everything else by code points after decomposition (the first unequal code points; -1
    // or 1 when one text runs out), so a precomposed letter equals its base letter followed
    // by the mark.
    int compareValue(const GSString& other) const;
    // Code points upper-cased with toupper, their difference; the count limits the bytes of
    // this string compared (negative: all of it).
    int compareValueCaseless(const GSString& other) const;
    int compareValueCountCaseless(const GSString& other, long count) const;
    // strcmp of the bytes (the first unequal unsigned bytes, the NUL included); null equals
    // empty and is -1 or 1 against any other text.
    int compareValueSimple(const GSString& other) const;
    int compareValueSimple(const char* text) const;
    // True when the first n bytes are equal (strncmp); a side without bytes only equals another.
    bool isEqualCount(const GSString& other, long n) const;
    // Byte searches (for ASCII characters): the index found, or -1.
    long findChar(char c, long from) const;
    long findCharRev(char c) const;
    // `count` bytes from `start` (negative: to the end) as a new string with this tag; the
    // caller keeps both within the text.
    GSString getSubstring(long start, long count) const;
    bool operator==(const GSString& other) const { return compareValue(other) == 0; }
    bool operator==(const char* text) const { return compareValue(GSString(text)) == 0; }

    // The string's file form, in the 64-bit or the classic layout chosen by the file.
    short write(GSFile* file) const;
    short read(GSFile* file);

#ifdef GS_STRING_PLATFORM_CONVERSIONS
    // A new platform string (the caller releases it): Windows Latin 1 for tag 0, UTF-8 for 100,
    // Mac Roman for every other tag; an empty one for the null string.
    const __CFString* createCFStringRef() const;
#ifdef __OBJC__
    NSString* createNSString() const __attribute__((ns_returns_retained));
#endif
    // The platform string as UTF-8; null when it is null, empty or cannot be converted.
    explicit GSString(const __CFString* text);
#endif

private:
    enum : unsigned char { kBuffer = 0, kBorrowed = 1, kInline = 2 };

    struct Inline {
        char text[kInlineSize];
        unsigned char count; // bytes in use, NUL included
    };
    struct Borrowed {
        const char* text;
        long long length; // -1 until first asked
    };
    union Payload {
        Inline inl;
        Borrowed borrowed;
    };

    void releaseData() {
        if (data) data->release();
        data = nullptr;
    }
    void becomeNull() {
        releaseData();
        storage = kBuffer;
    }
    friend class GSStringConverter; // convertEncoding's byte maps and bulk appends
    void initUnits(const unsigned short* utf16, long count);
    char* mutableBytes();
    void setByteCount(long count); // NUL included; the bytes must be own
    bool ownsBytes(const char* p) const;
    // True when n more bytes fit into a buffer of this string's own: what _insert at the end
    // would then do is to copy them and move the NUL, nothing else.
    bool hasRoomInOwnBuffer(long n) const {
        return data && storage == kBuffer && data->elements && data->size + n <= data->capacity &&
               data->getReferenceCount() < 2;
    }
    // Appends n bytes; the fast path of _insert at the end.
    short append(const char* bytes, long n) {
        if (hasRoomInOwnBuffer(n)) {
            char* end = data->elements + data->size - 1;
            std::memmove(end, bytes, static_cast<size_t>(n)); // bytes may be this text's own
            end[n] = 0;
            data->size += n;
            return 0;
        }
        return _insert(getLength(), bytes, n);
    }

    GSArrayData<char>* data;
    mutable Payload payload; // a borrowed text's length is cached on first use
    unsigned char storage;
    unsigned char encoding;
};

static_assert(sizeof(GSString) == 64, "GSString: buffer pointer, 48-byte union, form and tag");
