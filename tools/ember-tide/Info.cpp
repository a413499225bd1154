// Info.cpp - `ember-tide info [--json] FILE...`: what each file is and what preview it carries.
#include "Tool.h"

#include <cstring>
#include <string>

namespace tool {

namespace {

const char* kInfoHelp =
    "Usage: ember-tide info [--json] FILE...\n"
    "Says for each file whether it is a document or a selection, its version, and the kind,\n"
    "pixel size and byte count of the preview it carries.\n"
    "\n"
    "  --json   one JSON object per line:\n"
    "           {\"file\", \"type\": \"document\"|\"selection\"|\"unknown\", \"version\",\n"
    "            \"preview\": null or {\"kind\", \"format\", \"width\", \"height\", \"info\", "
    "\"bytes\"}}\n"
    "\n"
    "Exit status: 0, or 2 when a file cannot be opened.\n"
    "Example: ember-tide info --json photo.etd\n";

void appendJSONString(std::string* out, const std::string& text) {
    static const char* hex = "0123456789abcdef";
    out->push_back('"');
    for (size_t i = 0; i < text.size(); ++i) {
        auto c = static_cast<unsigned char>(text[i]);
        if (c == '"' || c == '\\') {
            out->push_back('\\');
            out->push_back(static_cast<char>(c));
        } else if (c < 0x20) {
            out->append("\\u00");
            out->push_back(hex[c >> 4]);
            out->push_back(hex[c & 15]);
        } else {
            out->push_back(static_cast<char>(c));
        }
    }
    out->push_back('"');
}

std::string versionText(int version) {
    return std::to_string((version >> 8) & 0xFF) + "." + std::to_string(version & 0xFF);
}

const char* typeName(const DocumentPreview& d) {
    return !d.recognised ? "unknown" : d.selection ? "selection" : "document";
}

std::string jsonLine(const std::string& file, const DocumentPreview& d) {
    std::string out = "{\"file\": ";
    appendJSONString(&out, file);
    out += ", \"type\": \"";
    out += typeName(d);
    out += "\", \"version\": ";
    out += d.recognised && d.versionKnown ? std::to_string(d.version) : "null";
    out += ", \"preview\": ";
    if (!d.hasPreview) {
        out += "null}";
        return out;
    }
    auto orNull = [](bool known, int value) { return known ? std::to_string(value) : "null"; };
    out += "{\"kind\": " + std::to_string(d.kind) + ", \"format\": \"" + formatName(d.kind) +
           "\", \"width\": " + orNull(d.sizeKnown, d.size.width) +
           ", \"height\": " + orNull(d.sizeKnown, d.size.height) +
           ", \"info\": " + orNull(d.infoKnown, d.infoValue) +
           ", \"bytes\": " + std::to_string(d.bytes.getSize()) + "}}";
    return out;
}

std::string textLine(const std::string& file, const DocumentPreview& d) {
    std::string out = file + ": ";
    if (!d.recognised) return out + "not an Ember Tide document";
    out += typeName(d);
    if (d.versionKnown) out += ", version " + versionText(d.version);
    else out += ", version unreadable";
    if (!d.hasPreview) return out + ", no preview";
    out += std::string(", preview ") + formatName(d.kind) + " (kind " + std::to_string(d.kind) + ")";
    if (d.sizeKnown) out += " " + std::to_string(d.size.width) + "x" + std::to_string(d.size.height);
    else out += " of unstated size";
    return out + ", " + std::to_string(d.bytes.getSize()) + " bytes";
}

} // namespace

int runInfo(int argc, char** argv) {
    bool json = false;
    int first = 1;
    for (; first < argc; ++first) {
        const char* a = argv[first];
        if (std::strcmp(a, "--help") == 0 || std::strcmp(a, "-h") == 0) {
            std::fputs(kInfoHelp, stdout);
            return kOK;
        }
        if (std::strcmp(a, "--json") == 0) json = true;
        else if (std::strcmp(a, "--") == 0) {
            ++first;
            break;
        } else if (a[0] == '-' && a[1] != 0) {
            usageError("info", std::string("unknown option ") + a);
            return kUsage;
        } else break;
    }
    if (first >= argc) {
        usageError("info", "no FILE given");
        return kUsage;
    }
    int status = kOK;
    for (int i = first; i < argc; ++i) {
        std::string file = argv[i];
        DocumentPreview d = readDocumentPreview(file);
        if (!d.opened) {
            message(file, "cannot open: " + d.problem);
            status = kIOError;
            continue;
        }
        if (!d.problem.empty()) message(file, d.problem);
        std::string line = json ? jsonLine(file, d) : textLine(file, d);
        std::printf("%s\n", line.c_str());
    }
    return status;
}

} // namespace tool
