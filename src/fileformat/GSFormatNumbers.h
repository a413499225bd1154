// GSFormatNumbers.h - the numbers of the document format and of the framework's file options,
// named once.
//
// A document is "Ember Tide Document" (or "Ember Tide Selection") and a NUL, its version (major
// and minor nibbles, 0x0302 the newest), and a top-level chunk of tagged items. The items that a
// reader acts on are named below; every other tag is the editor's own data, skipped by its
// length (the writer uses tag 12 for padding, which readers skip like any other). The preview
// item holds a chunk of its own (version 256, like every nested chunk) whose items describe the
// picture: an information item, an object record of a picture class, or inline picture data,
// followed by the encoded bytes. A picture record's body has items of its own, numbered apart.
//
// Beside them: the access bits of a file worker and the safety modes of a save, which a file
// spec carries under GSFileSafetyModeKey. The reader, the writer, the tool and the tests use
// these names; a bare number for any of them is a bug waiting for a second meaning.
#pragma once

inline constexpr const char* kEmberTideDocumentID = "Ember Tide Document";
inline constexpr const char* kEmberTideSelectionID = "Ember Tide Selection";
inline constexpr short kEmberTideNewestVersion = 0x0302;
// Versions from this one on open with an object table header (object merging from the start).
inline constexpr short kEmberTideMergingVersion = 0x0300;

// The version every nested chunk is written with.
inline constexpr int GSChunkVersion = 256;

// Top-level items of a document.
enum GSDocumentTag : int {
    GSTagStartMerging = 11, // object merging starts here (documents before 0x0300)
    GSTagPadding = 12,      // written only as padding; skipped by readers like any other item
    GSTagPreview = 13,      // the preview chunk
    GSTagRawFloats = 14,    // floats are stored raw from here on
    GSTagRawDoubles = 15,   // doubles are stored raw from here on
};

// Items of the preview chunk.
enum GSPreviewTag : int {
    GSPreviewTagInfo = 0,   // kind, information value and pixel size
    GSPreviewTagRecord = 4, // an object record of a picture class, bytes included
    GSPreviewTagInline = 6, // inline picture data, the encoded bytes after it
};

// Items of a picture record's body.
enum GSPictureTag : int {
    GSPictureTagInfo = 0, // as GSPreviewTagInfo
    GSPictureTagData = 3, // the picture data, the encoded bytes after it
};

// Kinds of encoded preview. An old writer's alias of PNG is read as PNG.
enum GSPreviewKind : int {
    GSPreviewJPEG = 2,
    GSPreviewPNG = 3,
    GSPreviewPNGAlias = 5,
};

// Access bits of a file worker, from its access mode text ("rb", "wb+", ...).
enum : unsigned {
    GSAccessRead = 1,
    GSAccessWrite = 2,
    GSAccessBinary = 4,   // no newline translation in getChar / the base putChar
    GSAccessTruncate = 8, // "w": the file is created anew
};

// Bits of the safety mode of a save.
enum : unsigned {
    GSSafetyTemporaryFile = 1, // write a hidden temporary file and exchange it on close
    GSSafetyBackup = 2,        // keep the old content as "name~.ext" (implies a temporary file)
};

// The framework's integer arguments that carry a meaning.
enum : short {
    GSFolderPath = 0,   // getPathname: the folder's path, with a trailing "/"
    GSFullPath = 1,     // getPathname: the item's own path
    GSCloseKeep = 0,    // close: keep what was written (a safe save exchanges it into place)
    GSCloseDiscard = 1, // close: discard it (a safe save leaves the old file as it was)
};
// GSFile::init's growth step for a memory file: grow by as much again as is asked for.
inline constexpr long GSGrowDouble = -100;
