// MalformedTextTest.cpp - no operation reads past a malformed text's NUL.
//
// Each text is borrowed from a heap block of exactly its bytes and NUL, so that under
// AddressSanitizer (the asan preset runs this suite) a read past the NUL is a reported error.
// Every reading operation is run at every index, in every encoding.
#include "GSString.h"
#include "GSStringUniCharEnumerator.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

namespace {

const std::string kMalformed[] = {
    std::string("\xC3"),                  // truncated at the end
    std::string("ab\xE2\x82"),            // truncated three-byte sequence
    std::string("\xF0\x9F\x98"),          // truncated four-byte sequence
    std::string("\xFC\x80\x80"),          // truncated six-byte form
    std::string("\xFE\xFF\xFE"),          // never lead bytes
    std::string("\x80\xBF\x80x"),         // continuation bytes without a lead
    std::string("\xED\xA0\x80"),          // a lone high surrogate
    std::string("\xED\xB0\x80\xCC\x81"),  // a lone low surrogate and a mark
    std::string("\xC0\x80\xE0\x80\x80"),  // overlong forms
    std::string("\xCC\x81\xCC\x81\xCC"),  // marks without a base, the last one cut short
    std::string("e\xCC\x81\xCC\x81\xCC"), // a cluster that ends in half a mark
    std::string("\xC3\xA9\xFF"),
};

// A borrowed string over an exact-size copy of `bytes`.
struct Exact {
    explicit Exact(const std::string& bytes, int tag) : block(new char[bytes.size() + 1]) {
        std::memcpy(block.get(), bytes.data(), bytes.size());
        block[bytes.size()] = 0;
        s.initFromCString(block.get(), 1);
        s.setEncoding(static_cast<unsigned char>(tag));
    }
    std::unique_ptr<char[]> block;
    GSString s;
};

} // namespace

TEST(MalformedText, NoOperationReadsPastTheEnd) {
    for (const std::string& bytes : kMalformed) {
        for (int tag : {0, 1, 2, 3, 100, 101, 200}) {
            SCOPED_TRACE("tag " + std::to_string(tag) + " text of " + std::to_string(bytes.size()) +
                         " bytes");
            Exact e(bytes, tag);
            const GSString& s = e.s;
            long length = s.getLength();
            ASSERT_EQ(length, static_cast<long>(bytes.size()));
            s.isValidUTF8();
            for (long i = -2; i <= length + 2; ++i) {
                s.getCharCountForIndex(i);
                long start = s.getValidStartIndexForIndex(i, 1);
                EXPECT_LE(start, std::max(i, 0L));
                long end = s.getValidEndIndexForIndex(i, 1);
                EXPECT_LE(end, std::max(i, length));
                long next;
                s.getUnicodeChar(i, &next);
                EXPECT_LE(next, std::max(i + 1, length + 1)) << "at " << i;
                GSString out;
                EXPECT_LE(s.addCharToString(i, &out), std::max(i, length));
            }
            for (short decompose : {0, 1}) {
                for (short backwards : {0, 1}) {
                    GSStringUniCharEnumerator walk(s, decompose, backwards);
                    unsigned code;
                    long steps = 0;
                    while (walk.getNext(&code))
                        ASSERT_LE(++steps, 2 * (length + 1)) << "no end";
                }
            }
            for (int target : {0, 1, 2, 3, 100, 101, 200}) {
                GSString copy(s);
                copy.convertEncoding(target);
                EXPECT_EQ(std::string(e.block.get(), bytes.size()), bytes)
                    << "converting a copy wrote into the borrowed text";
            }
            GSString edited(s);
            edited.addUnicodeChar(0xDC00);
            edited.add(GSString("\xC3", 1, 100));
            edited.remove(0, 1);
        }
    }
}
