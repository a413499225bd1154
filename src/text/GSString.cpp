// GSString.cpp - storage forms, construction, assignment and editing of GSString.
//
// Every write goes through createOwnData first, which is where a borrowed or shared text
// becomes this string's own. The growth proposals of the callers (twice the needed size from
// 16 bytes up, 16 more below) make appending one byte at a time amortised constant.
#include "text/GSString.h"

#include "objects/GSNumericStringTable.h"
#include "objects/GSStringTable.h"
#include "text/GSUTF8.h"

#include <algorithm>
#include <functional>
#include <new>
#include <utility>

constinit const GSString GSString::null;
// Constant-initialised (no storage until the first entry), so that classes registering texts
// from static initialisers in other files, and load() called that early, find them ready.
constinit GSNumericStringTable GSString::_numericStringTable;
constinit GSStringTable GSString::_stringTable;

namespace {

// Gives a buffer `capacity` bytes in place, keeping its text. When the new bytes cannot be
// had, the old ones are still freed and the buffer is left without bytes.
void resizeBuffer(GSArrayData<char>* buffer, long capacity) {
    char* bytes = new (std::nothrow) char[static_cast<size_t>(capacity)];
    if (bytes && buffer->elements && buffer->size > 0) {
        long keep = std::min(buffer->size, capacity);
        std::memcpy(bytes, buffer->elements, static_cast<size_t>(keep));
        bytes[keep - 1] = 0;
        buffer->size = keep;
    }
    delete[] buffer->elements;
    buffer->elements = bytes;
    buffer->capacity = bytes ? capacity : 0;
    if (!bytes) buffer->size = 0;
}

} // namespace

// ---------------------------------------------------------------- construction, assignment

GSString::GSString(int id) : GSString() {
    if (id != 0) load(static_cast<unsigned>(id));
}

GSString::GSString(const GSString& other) noexcept
    : data(other.data), payload(other.payload), storage(other.storage), encoding(other.encoding) {
    if (data) data->addReference();
}

GSString::GSString(GSString&& other) noexcept
    : data(std::exchange(other.data, nullptr)), payload(other.payload), storage(other.storage),
      encoding(other.encoding) {
    other.storage = kBuffer;
}

GSString& GSString::operator=(const GSString& other) noexcept {
    if (this == &other) return *this;
    if (other.data) other.data->addReference();
    releaseData();
    data = other.data;
    payload = other.payload;
    storage = other.storage;
    encoding = other.encoding;
    return *this;
}

GSString& GSString::operator=(GSString&& other) noexcept {
    if (this == &other) return *this;
    releaseData();
    data = std::exchange(other.data, nullptr);
    payload = other.payload;
    storage = other.storage;
    encoding = other.encoding;
    other.storage = kBuffer;
    return *this;
}

GSString& GSString::operator=(const char* text) {
    if (!text) {
        becomeNull();
        return *this;
    }
    if (ownsBytes(text)) {
        // Making room may free or overwrite the text: take it from a copy.
        GSString copy = withCopyOf(text);
        return *this = copy.getConstAddr();
    }
    long n = static_cast<long>(std::strlen(text));
    if (createOwnData(n + 1, n < 15 ? n + 17 : 2 * n + 2, 0)) return *this;
    std::memcpy(mutableBytes(), text, static_cast<size_t>(n + 1));
    setByteCount(n + 1);
    return *this;
}

GSString GSString::withCopyOf(const char* text) {
    GSString copy;
    copy.initFromCString(text, 0);
    return copy;
}

bool GSString::initFromCString(const char* text, short borrow) {
    if (text && borrow) {
        becomeNull();
        storage = kBorrowed;
        payload.borrowed.text = text;
        payload.borrowed.length = -1;
    } else {
        *this = text;
    }
    encoding = kMac;
    bool valid = isValidUTF8();
    if (valid) encoding = kUTF8;
    return valid;
}

void GSString::init(const char* bytes, long length, int tag) {
    if (bytes && ownsBytes(bytes)) {
        // clear() below would empty the bytes: read them from a copy that holds them.
        long n = length < 0 ? static_cast<long>(std::strlen(bytes)) : length;
        GSString copy;
        copy.encoding = encoding;
        if (copy._insert(0, bytes, n)) return;
        return init(copy.getConstAddr(), length, tag);
    }
    encoding = tag < 0 ? static_cast<unsigned char>(kMac) : static_cast<unsigned char>(tag);
    clear();
    if (!bytes) return;
    if (length < 0) {
        initFromCString(bytes, 0);
        if (tag >= 0) encoding = static_cast<unsigned char>(tag);
        return;
    }
    if (length == 0) return;
    _insert(0, bytes, length);
    if (tag == -2 && isValidUTF8()) encoding = kUTF8;
}

void GSString::init(const unsigned short* utf16, long count) {
    if (utf16 && ownsBytes(reinterpret_cast<const char*>(utf16))) {
        // clear() would empty the units: a copy keeps them (the same buffer, or inline bytes
        // of its own) while this string is rebuilt.
        GSString holder(*this);
        long offset = reinterpret_cast<const char*>(utf16) - getConstAddr();
        becomeNull();
        return initUnits(reinterpret_cast<const unsigned short*>(holder.getConstAddr() + offset),
                         count);
    }
    initUnits(utf16, count);
}

void GSString::initUnits(const unsigned short* utf16, long count) {
    encoding = kUTF8;
    clear();
    if (!utf16) return;
    // Units are read bytewise: a text in another string's storage need not be aligned.
    auto unit = [utf16](long i) {
        unsigned short u;
        std::memcpy(&u, reinterpret_cast<const char*>(utf16) + 2 * i, 2);
        return static_cast<unsigned>(u);
    };
    if (count < 0) {
        count = 0;
        while (unit(count) != 0)
            ++count;
    }
    if (count == 0) return;
    setSize(2 * count);
    for (long i = 0; i < count; ++i) {
        unsigned code = unit(i);
        if (code >= 0xDC00 && code <= 0xDFFF) {
            code = 0x20;
        } else if (code >= 0xD800 && code <= 0xDBFF) {
            if (i + 1 >= count) {
                code = 0x20;
            } else {
                unsigned low = unit(++i);
                code = low >= 0xDC00 && low <= 0xDFFF
                           ? ((code << 10) & 0xFFC00) + (low & 0x3FF) + 0x10000
                           : 0x20;
            }
        }
        addUnicodeChar(code);
    }
}

void GSString::load(unsigned id) {
    if (id == 0) {
        clear();
        return;
    }
    *this = _numericStringTable.getValue(static_cast<int>(id));
}

// ---------------------------------------------------------------- access

long GSString::getLength() const {
    switch (storage) {
    case kInline:
        return payload.inl.count - 1;
    case kBorrowed:
        if (payload.borrowed.length < 0 && payload.borrowed.text)
            payload.borrowed.length = static_cast<long long>(std::strlen(payload.borrowed.text));
        return static_cast<long>(payload.borrowed.length);
    default:
        return data && data->elements ? data->size - 1 : 0;
    }
}

long GSString::getSize() const {
    switch (storage) {
    case kInline:
        return kInlineSize;
    case kBorrowed:
        return getLength() + 1;
    default:
        return data ? data->capacity : 0;
    }
}

const char* GSString::getConstAddr() const {
    switch (storage) {
    case kInline:
        return payload.inl.text;
    case kBorrowed:
        return payload.borrowed.text;
    default:
        return data ? data->elements : nullptr;
    }
}

char GSString::operator[](long i) const {
    const char* p = getConstAddr();
    if (!p || i < 0 || i > getLength()) return 0;
    return p[i];
}

bool GSString::isValidUTF8() const {
    const auto* p = reinterpret_cast<const unsigned char*>(getConstAddr());
    if (!p) return false;
    const unsigned char* end = p + getLength();
    while (p < end) {
        if (*p < 0x80) {
            ++p;
            continue;
        }
        unsigned code;
        p = GSUTF8ReadChar(p, end - p, 0, &code);
        if (!p) return false;
    }
    return true;
}

char* GSString::mutableBytes() {
    return storage == kInline ? payload.inl.text : data->elements;
}

void GSString::setByteCount(long count) {
    if (storage == kInline)
        payload.inl.count = static_cast<unsigned char>(count);
    else
        data->size = std::min(count, data->capacity);
}

bool GSString::ownsBytes(const char* p) const {
    const char* own = nullptr;
    long size = 0;
    if (storage == kInline) {
        own = payload.inl.text;
        size = kInlineSize;
    } else if (storage == kBuffer && data && data->elements) {
        own = data->elements;
        size = data->capacity;
    }
    std::less<const char*> before;
    return own && !before(p, own) && before(p, own + size);
}

// ---------------------------------------------------------------- making room

short GSString::createDataWithSize(long size, short keep) {
    const char* source = keep ? getConstAddr() : nullptr;
    long length = source ? getLength() : 0;
    if (size > kInlineSize) {
        GSArrayData<char>* fresh = GSArrayData<char>::create(size);
        if (!fresh) return 1; // the string is left as it was
        long n = std::min(length, size - 1);
        if (n > 0) std::memcpy(fresh->elements, source, static_cast<size_t>(n));
        fresh->elements[n] = 0;
        fresh->size = n + 1;
        fresh->addReference();
        releaseData(); // only now: the text may have come from the old buffer
        data = fresh;
        storage = kBuffer;
        return 0;
    }
    // The source may be this string's inline text or a pointer held in the same union.
    char text[kInlineSize];
    long n = std::min(length, kInlineSize - 1);
    if (n > 0) std::memmove(text, source, static_cast<size_t>(n));
    text[n] = 0;
    releaseData();
    storage = kInline;
    std::memcpy(payload.inl.text, text, static_cast<size_t>(n + 1));
    payload.inl.count = static_cast<unsigned char>(n + 1);
    return 0;
}

short GSString::createOwnData(long needed, long proposed, short keep) {
    // Inline whenever the text and its NUL fit in the 47 bytes: a text of 46 bytes too.
    long cap;
    if (needed <= kInlineSize) {
        if (!data) return createDataWithSize(kInlineSize, keep);
        cap = std::max(data->capacity, kInlineSize);
    } else {
        if (!data) return createDataWithSize(proposed, keep);
        cap = proposed;
    }
    if (storage != kBorrowed && cap >= kInlineSize + 1 && data->getReferenceCount() < 2) {
        if (!data->elements) {
            resizeBuffer(data, std::max(cap, needed));
            if (!data->elements) {
                clear();
                return 1;
            }
            data->elements[0] = 0;
            data->size = 1;
        } else if (data->capacity < needed) {
            resizeBuffer(data, std::max(cap, needed));
            if (!data->elements) {
                clear();
                return 1;
            }
        }
        return 0;
    }
    return createDataWithSize(std::max(cap, needed), keep);
}

short GSString::setSize(long n) {
    if (n < kInlineSize + 1) return 0;
    if (data && data->elements && data->getReferenceCount() < 2 && data->capacity >= n) return 0;
    return createOwnData(2 * n + 2, 2 * n + 2, 1);
}

// ---------------------------------------------------------------- editing

void GSString::clear() {
    if (data && data->elements && data->getReferenceCount() < 2) {
        data->elements[0] = 0;
        data->size = 1;
        return;
    }
    becomeNull();
}

short GSString::_insert(long at, const char* bytes, long n) {
    long length = getLength();
    if (n < 0 || at < 0 || at > length || (n > 0 && !bytes)) return 1;
    if (n > 0 && ownsBytes(bytes)) {
        // Making room may free or move the bytes, and the tail moves over them: copy first.
        GSString copy;
        if (copy._insert(0, bytes, n)) return 1;
        return _insert(at, copy.getConstAddr(), n);
    }
    long needed = length + n + 1;
    if (short failed = createOwnData(needed, needed < 16 ? needed + 16 : 2 * needed, 1))
        return failed;
    if (getSize() < needed) return 1;
    char* p = mutableBytes();
    if (at < length) std::memmove(p + at + n, p + at, static_cast<size_t>(length - at + 1));
    if (n > 0) std::memcpy(p + at, bytes, static_cast<size_t>(n));
    if (at == length) p[length + n] = 0;
    setByteCount(length + 1 + n);
    return 0;
}

short GSString::insert(long at, const char* text) {
    if (!text) return 0;
    at = std::clamp(at, 0L, getLength());
    return _insert(at, text, static_cast<long>(std::strlen(text)));
}

short GSString::add(const char* text) {
    if (!text) return 0;
    return append(text, static_cast<long>(std::strlen(text)));
}

short GSString::add(const GSString& other) {
    if (&other == this) {
        GSString copy(*this);
        return add(copy);
    }
    auto mine = static_cast<signed char>(encoding);
    auto theirs = static_cast<signed char>(other.encoding);
    if (mine == theirs) return add(other.getConstAddr());
    if (theirs < mine) {
        GSString converted(other);
        short lost = converted.convertEncoding(encoding);
        return static_cast<short>(add(converted.getConstAddr()) | lost);
    }
    short lost = convertEncoding(other.encoding);
    return static_cast<short>(add(other.getConstAddr()) | lost);
}

GSString GSString::operator+(const GSString& other) const {
    GSString sum(*this);
    sum.add(other);
    return sum;
}

short GSString::remove(long at, long n) {
    long length = getLength();
    if (n == 0 || at < 0 || at >= length) return 0;
    if (n < 0 || n > length - at) n = length - at;
    if (short failed = createOwnData(length + 1, length + 1, 1)) return failed;
    char* p = mutableBytes();
    std::memmove(p + at, p + at + n, static_cast<size_t>(length - at - n + 1));
    setByteCount(length + 1 - n);
    return 0;
}

long GSString::insertCharInString(long at, long outAt, GSString* out) const {
    long length = getLength();
    if (at < 0 || at >= length) return at;
    long n = std::min(getCharCountForIndex(at), length - at);
    const char* p = getConstAddr() + at;
    if (outAt < 0)
        out->_insert(out->getLength(), p, n);
    else
        out->_insert(std::min(outAt, out->getLength()), p, n);
    return at + n;
}
