// GSFile.h - the reader-writer of the document format's primitives.
//
// GSFile owns no bytes: it sits on a GSFileWorker and adds the format's encodings. Every number
// is big-endian; floats and doubles have a compatible encoding (4-byte mantissa, 2-byte
// exponent) and a raw IEEE one (flag bits 6 and 7); array counts are 4-byte longs or compact
// long longs depending on the object table's use64Bit flag. Every primitive returns a status
// (0 success, 1 failure) and moves its bytes through a small stack buffer: no allocation.
// Positions are relative to `origin`. Object records and merging are in GSFileObjects.cpp.
#pragma once

#include "objects/GSDynaArray.h"
#include "storage/GSFileSpec.h"
#include "text/GSString.h"

#include <cstdint>
#include <memory>

class GSFileWorker;
class GSFileObjectTable;
class GSObject;

short GetBigShort(const unsigned char* p);
int GetBigLong(const unsigned char* p);
void SetBigShort(unsigned char* p, short value);
void SetBigLong(unsigned char* p, int value);

class GSFile {
public:
    enum : unsigned char {
        kTemporary = 1,
        kOwnsWorker = 2,
        kSafetyModeShift = 2,
        kSafetyModeMask = 0x3C,
        kRawFloats = 64,
        kRawDoubles = 128,
    };
    GSFile();
    GSFile(const GSFileSpec& spec, short resolveLink);
    GSFile(const GSFile&) = delete;
    GSFile& operator=(const GSFile&) = delete;
    ~GSFile();

    short init(GSFileWorker* worker, short ownsWorker);
    short init(const GSDynaArray<unsigned char>& bytes);
    short init(long growBy, long capacity);
    short init(const GSFileSpec& spec, short resolveLink);
    short setFileSpec(const GSFileSpec& spec);
    short open();
    short close(short how);
    void freeFileWorker();
    const GSFileSpec& getFileSpec() const;
    const char* getAccessMode() const;
    GSFileWorker* getFileWorker() const { return worker; }

    unsigned char getFlags() const { return flags; }
    void setFlags(unsigned char value) { flags = value; }
    int getSafetyMode() const;
    int getFormatVersion() const { return formatVersion; }
    void setFormatVersion(int version) { formatVersion = version; }
    long getOrigin() const { return origin; }
    void setOrigin(long position) { origin = position; }

    long tell();
    short seek(long position, int whence);
    long getLength();
    // Bytes between the current position and the end; -1 when unknown. Counts read from a file
    // are checked against this before anything is allocated for them.
    long getBytesLeft();
    // Whether `count` bytes can still be read: small counts are taken on trust (a short read
    // fails them anyway), larger ones are checked against the bytes left before anything is
    // allocated for them. Keeps memory proportional to what the file can hold.
    bool fitsInFile(long count);

    short read(void* buffer, long count);
    short write(const void* buffer, long count);
    short readChar(char* c);
    short writeChar(char c);
    short getChar();
    short putChar(char c);

    short readShort(short* value);
    short writeShort(short value);
    short readLong(int* value);
    short writeLong(int value);
    short readLongLong(long* value);
    short writeLongLong(long value);
    short readIntAsShort(int* value);
    short writeIntAsShort(int value);
    short readPointer(void** value);
    short writePointer(void* value);
    short readFloat(float* value);
    short writeFloat(float value);
    short readDouble(double* value);
    short writeDouble(double value);
    short readCompactLongLong(long* value);
    short writeCompactLongLong(long value);
    short readArrayCount(long* count);
    short writeArrayCount(long count);
    short getUse64Bit() const;

    bool isToken(const char* token, short skipWhiteSpaceAfter);
    bool hasID(const char* id, short rewindOnFailure);
    void readWhiteSpace();

    // Object records and object merging.
    short writeObject(const GSObject* object);
    short readObject(GSObject** object);
    GSObject* readObject();
    short _writeObject(const GSObject* object);
    short _readObject(GSObject** object);
    short _skipObject();
    short skipObject();
    short startObjectMergingWrite(short use64Bit);
    void stopObjectMergingWrite();
    short startObjectMergingRead();
    void stopObjectMergingRead();
    GSFileObjectTable* getObjectTable() const { return objectTable.get(); }

    // Path helpers on "/"-separated path strings.
    static GSString getFilename(const GSString& path);
    static long _getExtender(const GSString& path);
    static void changeFileExtender(GSString* path, const GSString& extender);
    static void addPathDividerIfNeeded(GSString* path);
    static short hasTrailingPathDivider(const GSString& path);
    static void removePathDividerIfNeeded(GSString* path);

private:
    unsigned char flags = kOwnsWorker | (1 << kSafetyModeShift);
    int formatVersion = 0;
    std::unique_ptr<GSFileObjectTable> objectTable;
    GSFileWorker* worker = nullptr;
    long origin = 0;
};

// By-type reading and writing, so that templates (arrays, sizes) can handle their elements.
inline short GSFileRead(GSFile* file, int* value) {
    return file->readLong(value);
}
inline short GSFileWrite(GSFile* file, int value) {
    return file->writeLong(value);
}
inline short GSFileRead(GSFile* file, float* value) {
    return file->readFloat(value);
}
inline short GSFileWrite(GSFile* file, float value) {
    return file->writeFloat(value);
}
