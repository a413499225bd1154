// GSFileState.h - the attributes of one file-system item: validity, three dates and flags.
//
// Filled by GSURLFillFileState and written back by GSURLSetFileState (GSURL.h). The dates are
// in UTC at millisecond precision. A fresh state is not valid, its dates are GSDate(0) and its
// flags are zero; a fill keeps the flag bits it cannot read, so a state that is filled again
// carries them over.
#pragma once

#include "text/GSDate.h"

struct GSFileState {
    // The bits of `flags`.
    enum : unsigned char {
        kLocked = 1,  // user-immutable: neither content nor name can change
        kHidden = 2,  // not listed by default (on Linux: the name begins with ".")
        kCleared = 4, // no meaning; every fill clears it
        kFolder = 8,  // a folder (packages are folders too)
        kPackage = 16 // a folder shown as one document (Apple platforms only)
    };

    GSFileState()
        : valid(0), reserved(0), creationDate(0), modificationDate(0), accessDate(0), flags(0) {}

    unsigned char valid;    // 1 after a successful fill
    unsigned char reserved; // cleared here and never used
    GSDate creationDate;
    GSDate modificationDate; // of the content
    GSDate accessDate;       // of the content
    unsigned char flags;
};
