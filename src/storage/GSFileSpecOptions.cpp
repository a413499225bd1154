// GSFileSpecOptions.cpp - the option dictionary of a file spec and the memory-file rule.
//
// Options are read by value class, never by cast: a text is a GSStringDictionaryKey stored as a
// value, a number a GSLongDictionaryKey, memory data a GSBufferObject; a value of any other
// class under a key counts as absent.
#include "objects/GSLongDictionaryKey.h"
#include "objects/GSObjectDictionary.h"
#include "objects/GSStringDictionaryKey.h"
#include "storage/GSFileSpec.h"
#include "storage/GSFileSpecKeys.h"

const GSString GSFileSafetyModeKey("GSFileSafetyMode");
const GSString GSFileFormatVersionKey("GSFileVersion");
const GSString GSFileDataKey("GSFileData");
const GSString GSFileDataNameKey("GSFileDataName");
const GSString GSFileDataIDKey("GSFileDataID");
const GSString GSFileSaveToMemoryKey("GSFileSaveToMemory");
const GSString GSFileBaseFileSpecKey("GSFileBaseFileSpec");
const GSString GSFileSaveAsTemplateKey("GSFileSaveAsTemplate");
const GSString GSFileCopyKey("GSFileCopy");

const GSString GSFileSpecDidCreateFileNotification("GSFileSpecDidCreateFile");
const GSString GSFileSpecDidCreateFolderNotification("GSFileSpecDidCreateFolder");
const GSString GSFileSpecDidRemoveFileNotification("GSFileSpecDidRemoveFile");
const GSString GSFileSpecDidRemoveFolderNotification("GSFileSpecDidRemoveFolder");
const GSString GSFileSpecDidRenameFileNotification("GSFileSpecDidRenameFile");
const GSString GSFileSpecDidRenameFolderNotification("GSFileSpecDidRenameFolder");
const GSString GSFileSpecIsFileSpecLockedNotification("GSFileSpecIsFileSpecLocked");

GSObjectDictionary* GSFileSpec::getOrCreateDictionary() {
    if (!dictionary) dictionary.reset(new GSObjectDictionary(16, -100));
    return dictionary.get();
}

GSString GSFileSpec::getDictionaryString(const GSString& key) const {
    if (!dictionary) return GSString();
    GSStringDictionaryKey name(key);
    auto* text = GSObjectCast<GSStringDictionaryKey>(
        dictionary->getValue(&name), GSStringDictionaryKey::gsClassGSStringDictionaryKey);
    return text ? text->value : GSString();
}

int GSFileSpec::getDictionaryLong(const GSString& key, int defaultValue) const {
    if (!dictionary) return defaultValue;
    GSStringDictionaryKey name(key);
    auto* number = GSObjectCast<GSLongDictionaryKey>(
        dictionary->getValue(&name), GSLongDictionaryKey::gsClassGSLongDictionaryKey);
    return number ? number->value : defaultValue;
}

// Mode 1: whether memory data is present. Modes 0 and 2: whether the spec names a memory file
// to write. With an identifier for the data, that is so unless saving to memory is switched
// off (then only when data is present, in mode 2); without one, only when it is switched on.
short GSFileSpec::isMemoryFileSpec(short mode) const {
    if (!dictionary) return 0;
    short hasData = 0;
    if (mode == 1 || mode == 2) hasData = dictionary->getBufferValue(GSFileDataKey).getSize() > 0;
    if (mode == 1) return hasData;
    if (!getDictionaryString(GSFileDataIDKey).isEmpty())
        return getDictionaryLong(GSFileSaveToMemoryKey, 1) != 0 ? 1 : hasData;
    return getDictionaryLong(GSFileSaveToMemoryKey, 0) != 0 ? 1 : 0;
}
