// fuzz_strings.cpp - the text layer on arbitrary bytes: GSUTF8ReadChar in both modes, the
// character enumerator in all four walks, the index rules, GSString::convertEncoding between
// arbitrary tags, string records in both file layouts, and the comparisons, searches and number
// operations on what they hold.
//
// Input: byte 0 the string's tag, byte 1 the conversion's target tag (below 0x80 one of the
// framework's tags, from 0x80 up the byte itself, so that unknown tags are tried too), byte 2
// a code point selector for addUnicodeChar, then the text. The text is copied into heap
// blocks of exactly its size, so that a read past its end or past its NUL is an ASan report.
#include "FuzzInput.h"
#include "text/GSString.h"
#include "text/GSStringUniCharEnumerator.h"
#include "text/GSUTF8.h"

#include <cstdint>
#include <cstring>
#include <memory>

namespace {

int tagFromByte(uint8_t b) {
    static const int tags[] = {0, 1, 2, 3, 100, 101};
    return b < 0x80 ? tags[b % 6] : b;
}

void require(bool condition) {
    if (!condition) __builtin_trap();
}

void readAll(const unsigned char* p, long size, short lenient) {
    const unsigned char* end = p + size;
    while (p < end) {
        unsigned code;
        const unsigned char* past = GSUTF8ReadChar(p, end - p, lenient, &code);
        if (!past) {
            require(!lenient);
            ++p;
            continue;
        }
        require(past > p && past <= end + 1);
        p = past;
    }
}

void walkAll(const GSString& s) {
    long length = s.getLength();
    for (short decompose : {0, 1}) {
        for (short backwards : {0, 1}) {
            GSStringUniCharEnumerator walk(s, decompose, backwards);
            unsigned code;
            long steps = 0;
            while (walk.getNext(&code))
                require(++steps <= 2 * (length + 1));
        }
    }
}

void checkTerminated(const GSString& s) {
    const char* p = s.getConstAddr();
    if (p) require(p[s.getLength()] == 0);
}

// The operations that sorted tables, dictionaries and number fields run on texts from files.
void compareAndParse(const GSString& a, const GSString& b, long count) {
    require(a.compareValue(a) == 0);
    int ab = a.compareValue(b);
    int ba = b.compareValue(a);
    require((ab > 0) == (ba < 0) && (ab == 0) == (ba == 0));
    a.compareValueCaseless(b);
    a.compareValueCountCaseless(b, count);
    a.compareValueSimple(b);
    a.isEqualCount(b, count);
    long length = a.getLength();
    require(a.skipWhiteSpace(0) <= length);
    long end, digitsEnd;
    a.getBasicLongValue(0, &end, &digitsEnd);
    require(digitsEnd <= end && end <= length);
    a.getLongValue(count % (length + 1), nullptr);
    long at = a.findChar('.', 0);
    require(at >= -1 && at <= length);
    require(a.findCharRev('/') < length || length == 0);
    GSString part = a.getSubstring(at < 0 ? 0 : at, -1);
    checkTerminated(part);
    part.removeTrailingChar('.');
    part.addLong(static_cast<int>(count), static_cast<int>(count % 64) - 32);
    checkTerminated(part);
}

// String records read until the first failure, in the classic layout and in the 64-bit one
// (which a merging write switches on), with every read string checked as above.
void readRecords(const uint8_t* data, size_t size, long count) {
    GSString previous("seed");
    {
        GSFile file;
        openMemoryFile(&file, data, size);
        GSString s;
        for (int i = 0; i < 64 && s.read(&file) == 0; ++i) {
            checkTerminated(s);
            compareAndParse(s, previous, count);
            previous = s;
        }
    }
    GSFile file;
    openMemoryFile(&file, nullptr, 0);
    if (file.startObjectMergingWrite(1)) return;
    long start = file.tell();
    if (size && file.write(data, static_cast<long>(size))) return;
    file.seek(start, 0);
    GSString s;
    for (int i = 0; i < 64 && s.read(&file) == 0; ++i) {
        checkTerminated(s);
        compareAndParse(s, previous, count);
        previous = s;
    }
    file.stopObjectMergingWrite();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) return 0;
    int tag = tagFromByte(data[0]);
    int target = tagFromByte(data[1]);
    unsigned extra = data[2] * 0x1F1Fu % 0x110800u;
    const uint8_t* text = data + 3;
    long n = static_cast<long>(size - 3);

    // UTF-8 reading over exactly n bytes, with no terminator after them.
    auto raw = std::make_unique<unsigned char[]>(static_cast<size_t>(n > 0 ? n : 1));
    if (n > 0) std::memcpy(raw.get(), text, static_cast<size_t>(n));
    readAll(raw.get(), n, 0);
    readAll(raw.get(), n, 1);

    // A borrowed string over an exact NUL-terminated copy (up to the first NUL byte): every
    // reading operation must stop at the NUL.
    auto terminated = std::make_unique<char[]>(static_cast<size_t>(n + 1));
    if (n > 0) std::memcpy(terminated.get(), text, static_cast<size_t>(n));
    terminated[n] = 0;
    GSString borrowed(terminated.get());
    borrowed.setEncoding(static_cast<unsigned char>(tag));
    long length = borrowed.getLength();
    borrowed.isValidUTF8();
    walkAll(borrowed);
    for (long i = -1; i <= length + 1; ++i) {
        long next;
        borrowed.getUnicodeChar(i, &next);
        require(next <= (i + 1 > length + 1 ? i + 1 : length + 1));
        require(borrowed.getValidStartIndexForIndex(i, 1) <= (i > 0 ? i : 0));
        borrowed.getValidEndIndexForIndex(i, 1);
        borrowed.getCharCountForIndex(i);
    }

    // The whole text, embedded NULs included, converted to the target and back.
    GSString own(reinterpret_cast<const char*>(text), n, tag);
    GSString copy(own);
    copy.convertEncoding(target);
    checkTerminated(copy);
    walkAll(copy);
    copy.convertEncoding(tag);
    checkTerminated(copy);
    require(own.getLength() == n); // the copy's conversion left the original alone
    GSString converted(borrowed);
    converted.convertEncoding(target);
    checkTerminated(converted);
    converted.addUnicodeChar(extra);
    converted.add(borrowed);
    checkTerminated(converted);

    compareAndParse(own, converted, static_cast<long>(extra % 97) - 3);
    double number = 0;
    if (n >= 8) std::memcpy(&number, text, sizeof number);
    converted.addCompactDouble(number, static_cast<int>(extra % 23) - 3, nullptr);
    checkTerminated(converted);
    readRecords(text, static_cast<size_t>(n), static_cast<long>(extra % 97) - 3);
    return 0;
}
