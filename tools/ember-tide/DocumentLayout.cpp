// DocumentLayout.cpp - parsing document versions and the layout options.
#include "DocumentLayout.h"

#include "Messages.h"
#include "fileformat/GSFormatNumbers.h"

#include <cerrno>
#include <cstdlib>

namespace tool {

const std::vector<option> kLayoutOptions = {
    {"version", required_argument, nullptr, kVersionOption},
    {"form", required_argument, nullptr, kFormOption},
};

bool layoutOption(const char* command, int key, const char* value,
                  EmberTideDocumentOptions* options, std::string* form) {
    const std::string v = value ? value : "";
    if (key == kFormOption) {
        if (v != "long" && v != "byte") {
            usageError(command, "--form is long or byte");
            return false;
        }
        *form = v;
        return true;
    }
    int version = parseDocumentVersion(v);
    if (version < 0) {
        usageError(command, "not a document version: " + v);
        return false;
    }
    options->version = static_cast<short>(version);
    return true;
}

bool applyLayoutForm(const char* command, const std::string& form,
                     EmberTideDocumentOptions* options) {
    bool version3 = options->version >= kEmberTideMergingVersion;
    if (form == "byte" && !version3) {
        usageError(command, "the byte form needs version 3.0 or later");
        return false;
    }
    options->byteForm = version3 && form != "long";
    return true;
}

int parseDocumentVersion(const std::string& text) {
    char* end = nullptr;
    errno = 0;
    long version = -1;
    if (auto dot = text.find('.'); dot != std::string::npos) {
        long major = std::strtol(text.c_str(), &end, 10);
        if (end != text.c_str() + dot) return -1;
        long minor = std::strtol(text.c_str() + dot + 1, &end, 10);
        if (*end || dot + 1 == text.size() || major < 0 || major > 15 || minor < 0 || minor > 15)
            return -1;
        version = (major << 8) | minor;
    } else {
        version = std::strtol(text.c_str(), &end, 0);
        if (text.empty() || *end || errno) return -1;
    }
    // The version is stored as a major and a minor nibble; a reader takes majors 1 to 3.
    if (version < 0x0100 || version > 0x030F || (version & 0xF0)) return -1;
    return static_cast<int>(version);
}

} // namespace tool
