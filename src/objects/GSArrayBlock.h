// GSArrayBlock.h - the file form of a typed array inside a value object's item.
//
// A block is a version record (no items, no end tag of its own), the element count as an array
// count, and the elements: bytes as one raw run, floats and ints one primitive each in index
// order. The merged form (version 512) wraps the count and the elements in an object table of
// its own, with 64-bit counts and raw floats; value objects never write it but read both forms.
//
// Reading drops the array's storage first and fails (1) for a negative count, for a count whose
// elements cannot be in the bytes left (before anything is allocated), for a merged block inside
// a file that is already merging (a table cannot start inside another), and for a version that
// is not accepted. The array then holds the elements read so far.
#pragma once

#include "objects/GSDynaArray.h"

class GSFile;

inline constexpr short kGSArrayBlockVersion = 256;
inline constexpr short kGSMergedArrayBlockVersion = 512;

short GSWriteArrayBlock(GSFile* file, const GSDynaArray<unsigned char>& array, bool merged = false);
short GSWriteArrayBlock(GSFile* file, const GSDynaArray<float>& array, bool merged = false);
short GSWriteArrayBlock(GSFile* file, const GSDynaArray<int>& array, bool merged = false);

short GSReadArrayBlock(GSFile* file, GSDynaArray<unsigned char>* array);
short GSReadArrayBlock(GSFile* file, GSDynaArray<float>* array);
short GSReadArrayBlock(GSFile* file, GSDynaArray<int>* array);
