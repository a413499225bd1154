// Info.cpp - `ember-tide info [--json] FILE...`: what each file is and what preview it carries.
#include "Arguments.h"
#include "Inventory.h"
#include "PrintableText.h"
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
    "\"bytes\"},\n"
    "            \"objects\": null or {\"entries\", \"unreadable\", \"classes\": {NAME: COUNT}}}\n"
    "           \"objects\" counts the object table of documents of version 3 and later:\n"
    "           its entries, those without a readable record, and the class names.\n"
    "\n"
    "Exit status: 0, or 2 when a file cannot be opened.\n"
    "Example: ember-tide info --json photo.etd\n";

// A JSON string. File and class names are bytes: what is not well-formed UTF-8 is written as
// U+FFFD, so that every line stays valid JSON.
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
        } else if (c < 0x80) {
            out->push_back(static_cast<char>(c));
        } else if (size_t n = wellFormedUTF8(text, i)) {
            out->append(text, i, n);
            i += n - 1;
        } else {
            out->append("\\ufffd");
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

std::string jsonObjects(const ObjectInventory& inventory) {
    if (!inventory.present) return "null";
    std::string out = "{\"entries\": " + std::to_string(inventory.entries) +
                      ", \"unreadable\": " + std::to_string(inventory.unreadable) +
                      ", \"classes\": {";
    const char* separator = "";
    for (const auto& [name, count] : inventory.classes) {
        out += separator;
        appendJSONString(&out, name);
        out += ": " + std::to_string(count);
        separator = ", ";
    }
    return out + "}}";
}

std::string jsonPreview(const DocumentPreview& d) {
    if (!d.hasPreview) return "null";
    auto orNull = [](bool known, int value) { return known ? std::to_string(value) : "null"; };
    return "{\"kind\": " + std::to_string(d.kind) + ", \"format\": \"" + formatName(d.kind) +
           "\", \"width\": " + orNull(d.sizeKnown, d.size.width) +
           ", \"height\": " + orNull(d.sizeKnown, d.size.height) +
           ", \"info\": " + orNull(d.infoKnown, d.infoValue) +
           ", \"bytes\": " + std::to_string(d.bytes.getSize()) + "}";
}

std::string jsonLine(const std::string& file, const DocumentPreview& d,
                     const ObjectInventory& inventory) {
    std::string out = "{\"file\": ";
    appendJSONString(&out, file);
    out += ", \"type\": \"";
    out += typeName(d);
    out += "\", \"version\": ";
    out += d.recognised && d.versionKnown ? std::to_string(d.version) : "null";
    out += ", \"preview\": " + jsonPreview(d);
    out += ", \"objects\": " + jsonObjects(inventory);
    return out + "}";
}

std::string textLine(const std::string& file, const DocumentPreview& d) {
    std::string out = printable(file) + ": ";
    if (!d.recognised) return out + "not an Ember Tide document";
    out += typeName(d);
    if (d.versionKnown)
        out += ", version " + versionText(d.version);
    else
        out += ", version unreadable";
    if (!d.hasPreview) return out + ", no preview";
    out +=
        std::string(", preview ") + formatName(d.kind) + " (kind " + std::to_string(d.kind) + ")";
    if (d.sizeKnown)
        out += " " + std::to_string(d.size.width) + "x" + std::to_string(d.size.height);
    else
        out += " of unstated size";
    return out + ", " + std::to_string(d.bytes.getSize()) + " bytes";
}

} // namespace

int runInfo(int argc, char** argv) {
    bool json = false;
    ParsedArguments args =
        parseArguments("info", argc, argv, "", {{"json", no_argument, nullptr, 'j'}},
                       [&](int, const char*) { return json = true; });
    if (!args.ok) return kUsage;
    if (args.help) return printHelp(kInfoHelp);
    if (args.operands.empty()) {
        usageError("info", "no FILE given");
        return kUsage;
    }
    int status = kOK;
    for (const std::string& named : args.operands) {
        std::string file, error;
        if (!pathFromArgument(named, &file, &error)) {
            message(named, error);
            status = kIOError;
            continue;
        }
        DocumentPreview d = readDocumentPreview(file);
        if (!d.opened) {
            message(file, "cannot open: " + d.problem);
            status = kIOError;
            continue;
        }
        if (!d.problem.empty()) message(file, d.problem);
        std::string line =
            json ? jsonLine(file, d, d.recognised ? readObjectInventory(file) : ObjectInventory())
                 : textLine(file, d);
        std::printf("%s\n", line.c_str());
    }
    return status;
}

} // namespace tool
