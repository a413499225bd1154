// GSStringUniCharEnumerator.cpp - the code-point walk over a GSString.
#include "text/GSStringUniCharEnumerator.h"

#include "text/GSCodePages.h"
#include "text/GSCombiningMarks.h"
#include "text/GSUTF8.h"

GSStringUniCharEnumerator::GSStringUniCharEnumerator(const GSString& s, short decomposing,
                                                     short walkBackwards)
    : string(s), bytes(reinterpret_cast<const unsigned char*>(string.getConstAddr())),
      table(GSGetToUnicodeTable(string.getEncoding())), decompose(decomposing),
      backwards(walkBackwards) {
    long length = string.getLength();
    if (backwards) {
        index = string.getValidStartIndexForIndex(length - 1, 1);
        end = -1;
    } else {
        index = 0;
        end = length;
    }
}

bool GSStringUniCharEnumerator::getNext(unsigned* code) {
    if (pending) {
        *code = pending;
        pending = 0;
        return true;
    }
    unsigned c;
    if (!backwards) {
        if (index >= end) return false;
        if (table) {
            do {
                charStart = index;
                c = table[bytes[index++]];
            } while (c == 0 && index < end);
            charSize = 1;
            if (c == 0) return false;
        } else if (bytes[index] < 0x80) {
            charStart = index;
            charSize = 1;
            c = bytes[index++];
        } else if ((bytes[index] & 0xE0) == 0xC0 && end - index >= 2) {
            // Lenient reads of two- and three-byte leads, inline: the lead's bits and the low
            // six bits of each following byte, whatever those bytes are.
            charStart = index;
            charSize = 2;
            c = (bytes[index] & 0x1Fu) << 6 | (bytes[index + 1] & 0x3Fu);
            index += 2;
        } else if ((bytes[index] & 0xF0) == 0xE0 && end - index >= 3) {
            charStart = index;
            charSize = 3;
            c = (bytes[index] & 0x0Fu) << 12 | (bytes[index + 1] & 0x3Fu) << 6 |
                (bytes[index + 2] & 0x3Fu);
            index += 3;
        } else {
            const unsigned char* past = GSUTF8ReadChar(bytes + index, end - index, 1, &c);
            charStart = index;
            charSize = past - (bytes + index);
            index += charSize;
        }
    } else {
        if (index <= end) return false;
        if (table) {
            do {
                charStart = index;
                c = table[bytes[index--]];
            } while (c == 0 && index > end);
            charSize = 1;
            if (c == 0) return false;
        } else {
            const unsigned char* past =
                GSUTF8ReadChar(bytes + index, string.getLength() - index, 1, &c);
            charStart = index;
            charSize = past - (bytes + index);
            index = string.getValidStartIndexForIndex(index - 1, 1);
        }
    }
    if (decompose && c < GSDecompositionTableSize) {
        if (!decompositions) decompositions = GSGetDecompositionTable();
        const GSDecomposition& d = decompositions[c];
        if (d.base) {
            pending = d.mark;
            c = d.base;
        }
    }
    *code = c;
    return true;
}
