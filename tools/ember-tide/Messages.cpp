// Messages.cpp - the messages, usage errors and help of the subcommands.
#include "Messages.h"

#include "PrintableText.h"

#include <cstdio>

namespace tool {

void message(const std::string& file, const std::string& what) {
    std::fprintf(stderr, "ember-tide: %s: %s\n", printable(file).c_str(), what.c_str());
}

void usageError(const char* command, const std::string& what) {
    std::fprintf(stderr, "ember-tide: %s%s%s\nTry 'ember-tide %s--help'.\n", command ? command : "",
                 command ? ": " : "", printable(what).c_str(),
                 command ? (std::string(command) + " ").c_str() : "");
}

int printHelp(const char* text) {
    std::fputs(text, stdout);
    return kOK;
}

} // namespace tool
