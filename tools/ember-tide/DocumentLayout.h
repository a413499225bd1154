// DocumentLayout.h - the document versions and layout options that create and convert share.
//
// A version is written as the user thinks of it ("3.2") or as the file stores it (0x0302, 770):
// a major and a minor nibble, majors 1 to 3. The byte form exists from version 3 on and is its
// default there; asking for it with an older version is a usage error, reported here.
#pragma once

#include "thumbnail/EmberTideDocumentWriter.h"

#include <getopt.h>
#include <string>
#include <vector>

namespace tool {

// "3.2", "0x0302", "770" -> 0x0302: a version that a reader accepts (majors 1 to 3, minors
// below 16); -1 for anything else.
int parseDocumentVersion(const std::string& text);

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

} // namespace tool
