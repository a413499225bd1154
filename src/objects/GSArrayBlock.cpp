// GSArrayBlock.cpp - writing and reading array blocks; one routine per element type, made from
// one template.
#include "objects/GSArrayBlock.h"

#include "fileformat/GSFile.h"
#include "fileformat/GSTagRead.h"
#include "fileformat/GSTagWrite.h"

#include <climits>
#include <type_traits>

namespace {

// The fewest bytes one element takes in a file: raw floats and ints 4, compatible floats 6.
template <class T> constexpr long kMinElementBytes = std::is_same_v<T, unsigned char> ? 1 : 4;

template <class T> short writeElements(GSFile* file, const GSDynaArray<T>& array) {
    long count = array.getSize();
    if (file->writeArrayCount(count)) return 1;
    const T* elements = array.getData();
    if constexpr (std::is_same_v<T, unsigned char>) {
        return count > 0 ? file->write(elements, count) : 0;
    } else {
        for (long i = 0; i < count; ++i)
            if (GSFileWrite(file, elements[i])) return 1;
        return 0;
    }
}

template <class T> short writeBlock(GSFile* file, const GSDynaArray<T>& array, bool merged) {
    // A table cannot start inside another one: refused rather than thrown.
    if (merged && file->getObjectTable()) return 1;
    {
        GSTagWrite version(file);
        if (version.writeVersion(merged ? kGSMergedArrayBlockVersion : kGSArrayBlockVersion))
            return 1;
    }
    if (!merged) return writeElements(file, array);
    short status = file->startObjectMergingWrite(1);
    if (status == 0) status = writeElements(file, array);
    file->stopObjectMergingWrite();
    return status ? 1 : 0;
}

template <class T> short readElements(GSFile* file, GSDynaArray<T>* array) {
    long count;
    if (file->readArrayCount(&count) || count < 0) return 1;
    if (count == 0) return 0;
    // The elements must be in the file: a larger count fails before anything is allocated.
    if (count > LONG_MAX / kMinElementBytes<T> || !file->fitsInFile(count * kMinElementBytes<T>))
        return 1;
    // One allocation for all of them; value-initialised, so a short read exposes zeros only.
    if (array->setSize(count)) return 1;
    T* elements = array->getMutableData();
    if constexpr (std::is_same_v<T, unsigned char>) {
        return file->read(elements, count);
    } else {
        for (long i = 0; i < count; ++i) {
            if (GSFileRead(file, &elements[i])) {
                array->setSize(i + 1); // the elements appended so far, the failed one included
                return 1;
            }
        }
        return 0;
    }
}

template <class T> short readBlock(GSFile* file, GSDynaArray<T>* array) {
    array->clear();
    GSTagRead reader(file);
    short version = 0;
    // Versions 1.x and 2.x are both accepted; anything the reader refuses is a failed read. The
    // merging state is left alone here: no table was started, so none is stopped.
    if (reader.readVersion(kGSMergedArrayBlockVersion, &version)) return 1;
    if (version < kGSMergedArrayBlockVersion) return readElements(file, array);
    // A merged block read inside a merging file would need a second table: a failed read, never
    // the exception that starting one twice throws.
    if (file->getObjectTable() || file->startObjectMergingRead()) return 1;
    short status = readElements(file, array);
    file->stopObjectMergingRead();
    return status;
}

} // namespace

short GSWriteArrayBlock(GSFile* file, const GSDynaArray<unsigned char>& array, bool merged) {
    return writeBlock(file, array, merged);
}
short GSWriteArrayBlock(GSFile* file, const GSDynaArray<float>& array, bool merged) {
    return writeBlock(file, array, merged);
}
short GSWriteArrayBlock(GSFile* file, const GSDynaArray<int>& array, bool merged) {
    return writeBlock(file, array, merged);
}

short GSReadArrayBlock(GSFile* file, GSDynaArray<unsigned char>* array) {
    return readBlock(file, array);
}
short GSReadArrayBlock(GSFile* file, GSDynaArray<float>* array) {
    return readBlock(file, array);
}
short GSReadArrayBlock(GSFile* file, GSDynaArray<int>* array) {
    return readBlock(file, array);
}
