// Arguments.h - the command line as every command of ember-tide reads it.
//
// Options follow getopt_long's conventions, which people type by habit: "--" ends the options
// (so a file named "-odd.etd" can follow it), "-s128" and "-s 128", "--size=128" and "--size 128"
// are the same, options may come after the operands, and a long option may be shortened while
// it stays unambiguous. Every command also takes "-h" and "--help". Files may be named by
// file:// URIs, as desktops hand them to thumbnailers (%u): percent-escapes are decoded; other
// schemes are refused with a message.
#pragma once

#include <functional>
#include <getopt.h>
#include <string>
#include <vector>

namespace tool {

struct ParsedArguments {
    bool ok = false;   // false: a usage error was reported (exit 2)
    bool help = false; // -h or --help was given: print the command's help (exit 0)
    std::vector<std::string> operands;
};

// Called for each option with its `val` from the table and its value (null when it takes
// none); returns false after reporting a usage error of its own.
using OptionHandler = std::function<bool(int key, const char* value)>;

// Parses argv[1...] (argv[0] is the command's name) with getopt_long. `shortOptions` and
// `longOptions` are getopt_long's (the table without its terminating zero entry); "h" and "help"
// are added. Unknown options and missing values are reported as usage errors of `command`.
ParsedArguments parseArguments(const char* command, int argc, char** argv, const char* shortOptions,
                               const std::vector<option>& longOptions,
                               const OptionHandler& onOption);

// The local path that a FILE argument names: the argument itself, or the path of a file:// URI
// (with an empty host or "localhost"). Returns false with `error` set for a URI of another
// scheme or one that names no local file.
bool pathFromArgument(const std::string& argument, std::string* path, std::string* error);

// The local paths of all the operands (pathFromArgument); false after a usage error of
// `command` for the first one that names no local file.
bool pathsFromOperands(const char* command, const ParsedArguments& parsed,
                       std::vector<std::string>* paths);

// The same for a command that takes exactly two files (FILE and OUT); `needed` names them in
// the usage error when fewer are given.
bool twoPathsFromOperands(const char* command, const ParsedArguments& parsed, const char* needed,
                          std::vector<std::string>* paths);

} // namespace tool
