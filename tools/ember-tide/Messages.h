// Messages.h - how every subcommand of ember-tide speaks: messages, usage errors, help, exit
// statuses.
//
// Messages go to stderr as "ember-tide: FILE: what happened", with the file name made printable
// (PrintableText.h); a usage error adds the line that points to the command's help. Help goes
// to stdout. Results are the commands' own business and never pass through here.
#pragma once

#include <string>

namespace tool {

enum Exit : int { kOK = 0, kNoPreview = 1, kUsage = 2, kIOError = 2 };

void message(const std::string& file, const std::string& what);
void usageError(const char* command, const std::string& what);

// Prints a command's help on stdout; kOK. (Whether stdout took it is checked on the way out.)
int printHelp(const char* text);

} // namespace tool
