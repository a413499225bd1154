// GSTagRead.h - reads a chunk: a version, tagged items and an end marker.
//
// The form is chosen by the file's use64Bit flag when each piece is read: the long form (short
// version, 4-byte tag and length, end tag -1) or the byte form (one version byte, 1-byte tag with
// a 1- or 8-byte length, end byte 0x7F). Unknown items are skipped by seeking, never read, so
// skipping costs the same whatever the item's size.
#pragma once

class GSFile;

class GSTagRead {
public:
    static constexpr int kEndTag = -1;
    static constexpr int kBadTag = static_cast<int>(0x80000000u);

    explicit GSTagRead(GSFile* file);

    // Reads the chunk's version. A major above maxVersion's skips the whole chunk and fails;
    // major 0 and minors of 16 or more fail. versionOut receives any version that was read.
    short readVersion(short maxVersion, short* versionOut);
    short readByteVersion(short* version);
    short readShortVersion(short* version);
    // Reads the next item header: its tag, -1 for the end marker, kBadTag when unreadable.
    int read();
    // Seeks past the current body. Fails (1) when that would not move forward (a negative
    // length) or overflow a position, so that loops over items always make progress. A seek past
    // the end of a file on disk succeeds; the next read() then fails instead.
    short skip();

    GSFile* getFile() const { return file; }
    int getTag() const { return tag; }
    long getLength() const { return length; }
    long getBodyStart() const { return bodyStart; }
    short getVersion() const { return version; }
    bool hasReadVersion() const { return versionRead; }

private:
    short readLongTag();
    short readByteTag();

    GSFile* file;
    int tag = 0;
    long length = 0;
    long bodyStart;
    short version = 256;
    bool versionRead = false;
};
