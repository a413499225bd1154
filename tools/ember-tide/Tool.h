// Tool.h - what the subcommands of ember-tide share: messages, exit statuses, the preview
// look-up, output files and the safe save of documents.
//
// Messages go to stderr as "ember-tide: FILE: what happened". Exceptions of the framework stop
// here: a document that makes extraction throw is reported and counts as having no preview.
#pragma once

#include "EmberTideDocumentWriter.h"
#include "GSDynaArray.h"
#include "GSGetThumbnail.h"
#include "GSTSize.h"

#include <cstdio>
#include <functional>
#include <getopt.h>
#include <string>
#include <vector>

class GSFile;

namespace tool {

enum Exit : int { kOK = 0, kNoPreview = 1, kUsage = 2, kIOError = 2 };

void message(const std::string& file, const std::string& what);
void usageError(const char* command, const std::string& what);

// Everything a subcommand needs to know about one file.
struct DocumentPreview {
    bool opened = false;     // false: the file could not be read at all (see `problem`)
    std::string problem;     // why not, or why extraction stopped (an exception)
    bool recognised = false; // starts with a document or selection identifier
    bool selection = false;
    bool versionKnown = false;
    int version = 0;
    bool hasPreview = false;
    int kind = 0;
    bool infoKnown = false;
    int infoValue = 0;
    bool sizeKnown = false;
    GSTSize<int> size;
    GSDynaArray<unsigned char> bytes;
    // Inline or an object record (of which class): known whenever a preview was found.
    EmberTideDocumentFacts::PictureStore store = EmberTideDocumentFacts::kNoPicture;
    long otherItems = 0; // items of the editor's own beside the preview
};

// Reads everything and closes the file before it returns. A selection's preview is read only
// with `selections` set: thumbnails and `extract` never show one, `convert` carries it over.
DocumentPreview readDocumentPreview(const std::string& path, bool selections = false);

// "jpeg" or "png" for a preview kind.
const char* formatName(int kind);

// "3.2", "0x0302", "770" -> 0x0302: a version that a reader accepts (majors 1 to 3, minors
// below 16); -1 for anything else.
int parseDocumentVersion(const std::string& text);

// Prints a command's help on stdout; kOK. (Whether stdout took it is checked on the way out.)
int printHelp(const char* text);

// The layout options that create and convert share, as getopt_long options: `--version V` and
// `--form long|byte`; layoutOption() takes one of them (false after a usage error).
enum : int { kVersionOption = 256, kFormOption };
extern const std::vector<option> kLayoutOptions;
bool layoutOption(const char* command, int key, const char* value,
                  EmberTideDocumentOptions* options, std::string* form);

// Sets the byte form once all options are read (the default from version 3 on); false after a
// usage error was reported.
bool applyLayoutForm(const char* command, const std::string& form,
                     EmberTideDocumentOptions* options);

// The folder that holds `path`: "." for a bare name.
std::string folderOf(const std::string& path);

// `path` with the symbolic links at its last place followed to the item they lead to, which
// need not exist: a link at an output stays a link, and what it leads to is written.
std::string followLinks(const std::string& path);

// Writes bytes to `out` ("-": stdout) under a temporary name beside it (created exclusively and
// unpredictably), synced, renamed into place once complete, the folder synced after; a link at
// `out` is followed. Returns an empty string, or what went wrong.
std::string writeOutputFile(const std::string& out, const unsigned char* data, long size);

// Fills an open file with a whole document; 0 on success.
using DocumentWriter = std::function<short(GSFile*)>;

// Saves a document at `out` with the framework's safe save: an existing file is left alone while
// the new one is written beside it under a hidden temporary name, and a complete file is
// exchanged into its place on close ("GSFileSafetyMode" 1); with `keepBackup` the previous
// content stays under the framework's backup name, "name~.ext" (mode 3). A failed write discards
// what was written. A link at `out` is followed, so the link stays a link (a dangling one gets
// the file it names). A new file, and "-" (stdout), are built in memory and written with
// writeOutputFile; `sizeHint` is the expected size. Anything at `out` that is not a regular file
// (a folder, a device) is refused, as a save would replace it.
// Returns an empty string, or what went wrong.
std::string saveDocument(const std::string& out, bool keepBackup, long sizeHint,
                         const DocumentWriter& write);

int runInfo(int argc, char** argv);
int runExtract(int argc, char** argv);
int runCreate(int argc, char** argv);
int runConvert(int argc, char** argv);
int runThumbnail(int argc, char** argv);
int runCache(int argc, char** argv);

} // namespace tool
