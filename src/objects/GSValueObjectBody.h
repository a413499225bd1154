// GSValueObjectBody.h - the one body layout shared by every value object and dictionary key.
//
// A body is a chunk: version 256, item 1 holding the value in its own encoding, the end tag.
// Each class supplies only the encoder and decoder of its value; the chunk around it, the way
// failures are folded and the tolerance for items a later writer may add live here, once.
//
// Reading accepts any other item and skips it, so later writers can add items, with one
// deliberate exception: an item numbered exactly 0x80000000 fails the read, as does a header that
// cannot be read (the tag reader reports it under that same number). A second item 1 is decoded
// again and wins. The coder is a non-owning reference to a callable, valid for the call only.
#pragma once

class GSFile;

class GSValueCoder {
public:
    template <class F>
    GSValueCoder(const F& f) // NOLINT: converting, so that a lambda can be passed directly
        : callable(&f), thunk([](const void* c, GSFile* file) -> short {
              return (*static_cast<const F*>(c))(file);
          }) {}
    short operator()(GSFile* file) const { return thunk(callable, file); }

private:
    const void* callable;
    short (*thunk)(const void*, GSFile*);
};

// The version of the bodies written today.
inline constexpr short kGSValueBodyVersion = 256;
// The item that holds the value.
inline constexpr int kGSValueItem = 1;

// Writes version 256, item 1 with what `encode` writes, and the end tag. The end tag is written
// even after a failure (its own status ignored), so a partial body is still a closed chunk.
// Returns 0, or 1 for any failure, whatever status the failing step gave.
short GSWriteValueBody(GSFile* file, GSValueCoder encode);
// Reads a body written by GSWriteValueBody, calling `decode` for every item 1. A failure of the
// version or of `decode` is returned unchanged; a bad item number or an item that cannot be
// stepped over gives 1. 0 at the end tag, also when there was no item 1.
short GSReadValueBody(GSFile* file, GSValueCoder decode);
