// Tool.h - what the subcommands of ember-tide share: messages, exit statuses, the preview
// look-up and output files.
//
// Messages go to stderr as "ember-tide: FILE: what happened". Exceptions of the framework stop
// here: a document that makes extraction throw is reported and counts as having no preview.
#pragma once

#include "GSDynaArray.h"
#include "GSTSize.h"

#include <cstdio>
#include <string>

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
};

DocumentPreview readDocumentPreview(const std::string& path);

// "jpeg" or "png" for a preview kind.
const char* formatName(int kind);

// Writes bytes to `out` ("-": stdout) under a temporary name beside it, renamed into place once
// complete. Returns an empty string, or what went wrong.
std::string writeOutputFile(const std::string& out, const unsigned char* data, long size);

int runInfo(int argc, char** argv);
int runExtract(int argc, char** argv);
int runCreate(int argc, char** argv);
int runThumbnail(int argc, char** argv);
int runCache(int argc, char** argv);

} // namespace tool
