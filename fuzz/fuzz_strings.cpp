// fuzz_strings.cpp - the text layer on arbitrary bytes: GSUTF8ReadChar in both modes, the
// character enumerator in all four walks, the index rules and GSString::convertEncoding between
// arbitrary tags.
//
// Input: byte 0 the string's tag, byte 1 the conversion's target tag (below 0x80 one of the
// framework's tags, from 0x80 up the byte itself, so that unknown tags are tried too), byte 2
// a code point selector for addUnicodeChar, then the text. The text is copied into heap
// blocks of exactly its size, so that a read past its end or past its NUL is an ASan report.
#include "GSString.h"
#include "GSStringUniCharEnumerator.h"
#include "GSUTF8.h"

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
    return 0;
}
