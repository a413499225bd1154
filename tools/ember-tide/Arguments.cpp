// Arguments.cpp - getopt_long for every command, and file:// URIs as file names.
#include "Arguments.h"

#include "Tool.h"
#include "storage/GSIdPointer.h"
#include "storage/GSURL.h"

#include <cctype>

namespace tool {

ParsedArguments parseArguments(const char* command, int argc, char** argv, const char* shortOptions,
                               const std::vector<option>& longOptions,
                               const OptionHandler& onOption) {
    ParsedArguments result;
    // A leading ":" makes a missing value its own case; messages are ours.
    std::string shortSpec = std::string(":") + shortOptions + "h";
    std::vector<option> table = longOptions;
    table.push_back({"help", no_argument, nullptr, 'h'});
    table.push_back({nullptr, 0, nullptr, 0});
    opterr = 0;
    optind = 0; // a full restart of glibc's parser
    for (;;) {
        int key = getopt_long(argc, argv, shortSpec.c_str(), table.data(), nullptr);
        if (key == -1) break;
        if (key == 'h') {
            result.help = true;
            result.ok = true;
            return result;
        }
        if (key == '?' || key == ':') {
            // The word that failed: the unknown or incomplete option as typed.
            std::string word = optind > 0 && optind <= argc ? argv[optind - 1] : "";
            if (optopt && (word.size() < 2 || word[0] != '-' || word[1] == '-'))
                word = std::string("-") + static_cast<char>(optopt);
            usageError(command, key == '?' ? "unknown option " + word : word + " needs a value");
            return result;
        }
        if (!onOption(key, optarg)) return result;
    }
    for (int i = optind; i < argc; ++i)
        result.operands.emplace_back(argv[i]);
    result.ok = true;
    return result;
}

namespace {

// "scheme://": letters, digits, "+", "-" and "." after a first letter.
bool hasScheme(const std::string& text, std::string* scheme) {
    size_t colon = text.find("://");
    if (colon == std::string::npos || colon == 0 ||
        !std::isalpha(static_cast<unsigned char>(text[0])))
        return false;
    for (size_t i = 0; i < colon; ++i) {
        unsigned char c = static_cast<unsigned char>(text[i]);
        if (!std::isalnum(c) && c != '+' && c != '-' && c != '.') return false;
    }
    *scheme = text.substr(0, colon);
    return true;
}

} // namespace

bool pathFromArgument(const std::string& argument, std::string* path, std::string* error) {
    std::string scheme;
    if (!hasScheme(argument, &scheme)) {
        *path = argument;
        return true;
    }
    for (char& c : scheme)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (scheme != "file") {
        *error = "only file:// URIs name files here, not " + scheme + "://";
        return false;
    }
    // The framework reads file URIs as the desktop writes them: percent-escapes decoded, an
    // empty host or "localhost".
    std::string uri = "file://" + argument.substr(7);
    GSIdPointer url;
    url = GSURLCreateWithFilePath(GSString(uri.c_str(), -1, GSString::kUTF8), 0, 0);
    GSString local = url.isEmpty() ? GSString() : GSURLGetPathname(url.get());
    if (local.isEmpty()) {
        *error = "not a local file URI";
        return false;
    }
    path->assign(local.getConstAddr(), static_cast<size_t>(local.getLength()));
    return true;
}

bool pathsFromOperands(const char* command, const ParsedArguments& parsed,
                       std::vector<std::string>* paths) {
    paths->clear();
    for (const std::string& operand : parsed.operands) {
        std::string path, error;
        if (!pathFromArgument(operand, &path, &error)) {
            usageError(command, error);
            return false;
        }
        paths->push_back(path);
    }
    return true;
}

bool twoPathsFromOperands(const char* command, const ParsedArguments& parsed, const char* needed,
                          std::vector<std::string>* paths) {
    if (parsed.operands.size() != 2) {
        usageError(command, parsed.operands.size() < 2 ? needed : "too many arguments");
        return false;
    }
    return pathsFromOperands(command, parsed, paths);
}

} // namespace tool
