// GSFileSpecKeys.h - the option keys a file spec's dictionary is read with, and the names of
// the notifications about file-system changes.
//
// The options travel with a file's name: how to save it safely, which format version to write,
// and, for a spec that names memory instead of a file, the bytes themselves. Only the first six
// keys are read in this system; the others are defined for the application around it.
#pragma once

#include "text/GSString.h"

extern const GSString GSFileSafetyModeKey;     // integer: GSSafety* bits (GSFormatNumbers.h)
extern const GSString GSFileFormatVersionKey;  // integer: the format version to write
extern const GSString GSFileDataKey;           // byte buffer: a memory file's bytes
extern const GSString GSFileDataNameKey;       // string: a name for memory data
extern const GSString GSFileDataIDKey;         // string: an identifier for memory data
extern const GSString GSFileSaveToMemoryKey;   // integer: nonzero writes to memory
extern const GSString GSFileBaseFileSpecKey;   // the spec a copy or template derives from
extern const GSString GSFileSaveAsTemplateKey; // saving as a template
extern const GSString GSFileCopyKey;           // saving a copy

extern const GSString GSFileSpecDidCreateFileNotification;
extern const GSString GSFileSpecDidCreateFolderNotification;
extern const GSString GSFileSpecDidRemoveFileNotification;
extern const GSString GSFileSpecDidRemoveFolderNotification;
extern const GSString GSFileSpecDidRenameFileNotification;
extern const GSString GSFileSpecDidRenameFolderNotification;
extern const GSString GSFileSpecIsFileSpecLockedNotification;
