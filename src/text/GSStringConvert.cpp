// GSStringConvert.cpp - GSString::convertEncoding, re-encoding a whole string.
//
// The result is built in a new string, exactly as if every character were appended with
// addCharForUnicode (into a tag with a from-Unicode table) or addUnicodeChar (into any other
// tag). For single-byte sources what one byte turns into does not depend on its neighbours (no
// to-Unicode table holds a combining mark), so the outcome of each of the 256 bytes is worked
// out once per pair of tags, by those very operations on a scratch string, and the conversion
// itself copies bytes from that map. A byte whose outcome could depend on the text before it
// is marked and goes through the operations themselves.
#include "text/GSCodePages.h"
#include "text/GSString.h"
#include "text/GSUTF8.h"

#include <cstdint>
#include <mutex>

namespace {

// What each byte of a source code page becomes in a result tag.
struct GSByteMap {
    static constexpr unsigned char kFails = 0;   // not representable: dropped
    static constexpr unsigned char kInPlace = 9; // must be appended in context
    unsigned char size[256];
    char bytes[256][8];
};

// Source tags 0, 1, 3 and the first 256 code points themselves (kLatin1), against result tags
// 0, 1, 3 (with tables), 100 and 101.
constexpr int kLatin1 = -1;
constexpr int kSources = 4, kResults = 5;

int sourceSlot(int tag) {
    return tag == kLatin1 ? 3 : tag == 3 ? 2 : tag;
}

const unsigned short* sourceTable(int tag) {
    static const struct Latin1 {
        unsigned short codes[256];
        constexpr Latin1() : codes() {
            for (int i = 0; i < 256; ++i)
                codes[i] = static_cast<unsigned short>(i);
        }
    } latin1;
    return tag == kLatin1 ? latin1.codes : GSGetToUnicodeTable(tag);
}

int resultSlot(int tag) {
    switch (tag) {
    case 0:
        return 0;
    case 1:
        return 1;
    case 3:
        return 2;
    case 100:
        return 3;
    case 101:
        return 4;
    default:
        return -1;
    }
}

} // namespace

class GSStringConverter {
public:
    // The map from bytes of tag `sourceTag` (kLatin1: code points below 256) into result tag
    // `resultTag` (a tag with a table, or a Unicode tag); built once per pair, on first use.
    static const GSByteMap& byteMap(int sourceTag, int resultTag) {
        static GSByteMap maps[kSources][kResults];
        static std::once_flag built[kSources][kResults];
        int s = sourceSlot(sourceTag), r = resultSlot(resultTag);
        std::call_once(built[s][r], [&] { fill(&maps[s][r], sourceTag, resultTag); });
        return maps[s][r];
    }

    static GSByteMap* scratchMap(GSByteMap* map, int sourceTag, int resultTag) {
        fill(map, sourceTag, resultTag);
        return map;
    }

    // Appends `size` bytes of `from` many times over: straight into an own buffer while it has
    // room to spare, through GSString::append (which grows it exactly as appending one
    // character does) when it has not.
    class Writer {
    public:
        explicit Writer(GSString* out) : s(out) {}
        ~Writer() { flush(); }
        // `from` holds 8 readable bytes, of which the first `size` are appended.
        void put(const char* from, int size) {
            if (limit - at >= 8) { // both null while the result has no own buffer
                std::memcpy(at, from, 8);
                at += size;
                return;
            }
            flush();
            s->append(from, size);
            open();
        }
        // Copies the run of ASCII bytes at p (up to end), eight at a time while there is room;
        // returns where the run stopped.
        const unsigned char* putAscii(const unsigned char* p, const unsigned char* end) {
            while (end - p >= 8 && limit - at >= 8) {
                std::uint64_t word;
                std::memcpy(&word, p, 8);
                if (word & 0x8080808080808080u) break;
                std::memcpy(at, &word, 8);
                at += 8;
                p += 8;
            }
            while (p < end && *p < 0x80) {
                char byte = static_cast<char>(*p++);
                if (limit - at >= 1) {
                    *at++ = byte;
                } else {
                    flush();
                    s->append(&byte, 1);
                    open();
                }
            }
            return p;
        }
        void open() {
            GSArrayData<char>* d = s->data;
            if (d && s->storage == GSString::kBuffer && d->elements && d->getReferenceCount() < 2) {
                at = d->elements + d->size - 1;
                limit = d->elements + d->capacity - 1;
            } else {
                at = limit = nullptr;
            }
        }
        void flush() {
            if (!at) return;
            GSArrayData<char>* d = s->data;
            *at = 0;
            d->size = at - d->elements + 1;
            at = limit = nullptr;
        }

    private:
        GSString* s;
        char* at = nullptr;
        char* limit = nullptr;
    };

private:
    static void fill(GSByteMap* map, int sourceTag, int resultTag) {
        const unsigned short* source = sourceTable(sourceTag);
        int entries;
        const unsigned short* table = GSGetFromUnicodeTable(resultTag, &entries);
        for (int b = 0; b < 256; ++b) {
            unsigned code = source[b];
            bool contextual = table ? code >= 0x0300 && code <= 0x036F
                                    : resultTag == 100 && code >= 0xDC00 && code <= 0xDFFE;
            if (contextual) {
                map->size[b] = GSByteMap::kInPlace;
                continue;
            }
            GSString scratch;
            scratch.encoding = static_cast<unsigned char>(resultTag);
            short failed =
                table ? scratch.addCharForUnicode(table, entries, static_cast<unsigned short>(code))
                      : scratch.addUnicodeChar(code);
            long n = scratch.getLength();
            map->size[b] = failed ? GSByteMap::kFails : static_cast<unsigned char>(n);
            std::memset(map->bytes[b], 0, sizeof map->bytes[b]);
            if (!failed) std::memcpy(map->bytes[b], scratch.getConstAddr(), static_cast<size_t>(n));
        }
    }
};

short GSString::convertEncoding(int target) {
    target = static_cast<unsigned char>(target); // tags are bytes
    if (encoding == target) return 0;
    const unsigned short* source = GSGetToUnicodeTable(encoding);
    int entries;
    const unsigned short* table = GSGetFromUnicodeTable(target, &entries);
    const auto* p = reinterpret_cast<const unsigned char*>(getConstAddr());
    long length = getLength();

    GSString result;
    result.encoding = static_cast<unsigned char>(target);
    result.setSize(length + 1);
    short status = 0;

    if (source && length > 0) {
        // One byte, one character. Without a table the first character added to the empty
        // result makes it UTF-8 if the target is a single-byte tag; every later one is UTF-8.
        int resultTag = target;
        if (!table && target < 100) resultTag = result.encoding = kUTF8;
        GSByteMap local;
        const GSByteMap& map = resultSlot(resultTag) >= 0
                                   ? GSStringConverter::byteMap(encoding, resultTag)
                                   : *GSStringConverter::scratchMap(&local, encoding, resultTag);
        short failure = table ? 1 : 0; // without a table nothing is reported
        GSStringConverter::Writer out(&result);
        out.open();
        for (long i = 0; i < length; ++i) {
            unsigned char size = map.size[p[i]];
            if (size == GSByteMap::kFails) {
                status |= failure;
            } else if (size == GSByteMap::kInPlace) {
                out.flush();
                short failed = table ? result.addCharForUnicode(table, entries, source[p[i]])
                                     : result.addUnicodeChar(source[p[i]]);
                status |= table ? failed : 0;
                out.open();
            } else {
                out.put(map.bytes[p[i]], size);
            }
        }
    } else if (source) {
        // Nothing to convert.
    } else if (!table) {
        // UTF-16 units become UTF-8 (whatever the target); any other source leaves the result
        // empty, tagged as asked.
        if (encoding == kUTF16) result.init(reinterpret_cast<const unsigned short*>(p), length / 2);
    } else {
        // Unicode text (and tag 2) into a code page: read leniently as UTF-8 into UTF-16 units,
        // then write each unit with the target's table. A unit of a surrogate pair never finds
        // a byte, so every character beyond the Basic Multilingual Plane is reported lost.
        // Each unit is written as soon as it is decoded: its outcome depends only on the result
        // so far, so this is the same as decoding the whole text into a list of units first,
        // without holding them (no allocation, and no fresh memory to touch, at any length).
        const GSByteMap& latin1 = GSStringConverter::byteMap(kLatin1, target);
        GSStringConverter::Writer out(&result);
        out.open();
        auto putUnit = [&](unsigned short u) {
            if (u < 256) {
                // Units below 256 never combine with what precedes them: mapped outcome.
                unsigned char size = latin1.size[u];
                if (size != GSByteMap::kFails && size != GSByteMap::kInPlace) {
                    out.put(latin1.bytes[u], size);
                    return;
                }
            }
            out.flush();
            status |= result.addCharForUnicode(table, entries, u);
            out.open();
        };
        const unsigned char* end = p + length;
        while (p && p < end) {
            if (*p < 0x80) {
                p = out.putAscii(p, end);
                continue;
            }
            unsigned code;
            if ((*p & 0xE0) == 0xC0 && end - p >= 2) {
                code = (p[0] & 0x1Fu) << 6 | (p[1] & 0x3Fu); // the lenient read of two bytes
                p += 2;
            } else {
                p = GSUTF8ReadChar(p, end - p, 1, &code);
            }
            if (code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) continue;
            if (code > 0xFFFF) {
                putUnit(static_cast<unsigned short>(((code - 0x10000) >> 10) + 0xD800));
                putUnit(static_cast<unsigned short>(((code - 0x10000) & 0x3FF) + 0xDC00));
            } else {
                putUnit(static_cast<unsigned short>(code));
            }
        }
    }
    *this = std::move(result);
    return status;
}
