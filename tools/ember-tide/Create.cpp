// Create.cpp - `ember-tide create`: a document (or selection) around a JPEG or PNG image,
// written with the framework's own writer and saved safely.
#include "Arguments.h"
#include "Tool.h"
#include "fileformat/GSFormatNumbers.h"
#include "fileformat/GSLimits.h"
#include "storage/GSAtomicFile.h"
#include "thumbnail/EmberTideDocumentWriter.h"
#include "thumbnail/GSGetThumbnail.h"
#include "thumbnail/GSImageHeader.h"
#include "thumbnail/GSMemPicData.h"
#include "thumbnail/GSRasterImage.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace tool {

namespace {

const char* kCreateHelp =
    "Usage: ember-tide create [--version V] [--form long|byte] [--store "
    "inline|record|system-record]\n"
    "                         [--selection] [--backup] IMAGE OUT\n"
    "Writes a document whose preview is IMAGE (a JPEG or PNG file, stored byte for byte; its\n"
    "width and height are read from its header). An existing OUT is replaced only once the new\n"
    "document is complete (\"-\" writes to standard output).\n"
    "\n"
    "  --version V   document version: 3.2 (default), 2.0, 0x0300, 768, ... (1.0 to 3.15)\n"
    "  --form F      long: 4-byte lengths and counts; byte: compact (default for version 3;\n"
    "                needs version 3 or later)\n"
    "  --store S     inline picture data (default), or a picture-data object record\n"
    "                (record, system-record)\n"
    "  --selection   write a selection file instead of a document\n"
    "  --backup      keep the previous OUT as NAME~.EXT (NAME~~.EXT, ... while that name is\n"
    "                taken and cannot be freed)\n"
    "\n"
    "Exit status: 0 written; 1 IMAGE is not a JPEG or PNG; 2 usage or I/O error.\n"
    "Example: ember-tide create --version 2.0 --store record photo.jpg photo.etd\n"
    "         ember-tide create --backup photo.jpg photo.etd   (the old one: photo~.etd)\n";

struct OpenFile {
    int fd;
    ~OpenFile() {
        if (fd >= 0) ::close(fd);
    }
};

// Reads IMAGE into `bytes`; kOK, or the exit status once the reason was reported.
int readImage(const std::string& path, GSDynaArray<unsigned char>* bytes) {
    auto refuse = [&](int status, const std::string& why) {
        message(path, why);
        return status;
    };
    // Non-blocking, so that opening a FIFO without a writer does not wait for one.
    OpenFile file{::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)};
    struct stat st;
    if (file.fd < 0 || ::fstat(file.fd, &st) != 0)
        return refuse(kIOError, "cannot read: " + GSErrorText(errno));
    if (S_ISDIR(st.st_mode)) return refuse(kIOError, "cannot read: is a folder");
    if (!S_ISREG(st.st_mode)) return refuse(kIOError, "cannot read: not a regular file");
    if (st.st_size > GSCurrentLimits().imageFileBytes)
        return refuse(kNoPreview, "larger than any JPEG or PNG a preview may hold (" +
                                      std::to_string(GSCurrentLimits().imageFileBytes / 1000000) +
                                      " MB)");
    if (bytes->setSize(static_cast<long>(st.st_size))) return refuse(kIOError, "out of memory");
    long done = 0;
    while (done < bytes->getSize()) { // a file that grows meanwhile gives what it had
        const ssize_t n = ::read(file.fd, bytes->getMutableData() + done,
                                 static_cast<size_t>(bytes->getSize() - done));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return refuse(kIOError, "cannot read: " + GSErrorText(errno));
        if (n == 0) break; // one that shrinks, what it has
        done += n;
    }
    bytes->setSize(done);
    return kOK;
}

} // namespace

int runCreate(int argc, char** argv) {
    EmberTideDocumentOptions options;
    options.version = kEmberTideNewestVersion;
    std::string form;
    bool backup = false;
    enum : int { kStore = 300, kSelection, kBackup };
    std::vector<option> table = kLayoutOptions;
    table.push_back({"store", required_argument, nullptr, kStore});
    table.push_back({"selection", no_argument, nullptr, kSelection});
    table.push_back({"backup", no_argument, nullptr, kBackup});
    ParsedArguments parsed =
        parseArguments("create", argc, argv, "", table, [&](int key, const char* value) {
            if (key == kSelection) return options.selection = true;
            if (key == kBackup) return backup = true;
            if (key != kStore) return layoutOption("create", key, value, &options, &form);
            const std::string store = value;
            if (store == "inline")
                options.store = EmberTideDocumentOptions::kInline;
            else if (store == "record")
                options.store = EmberTideDocumentOptions::kRecord;
            else if (store == "system-record")
                options.store = EmberTideDocumentOptions::kSystemRecord;
            else {
                usageError("create", "--store is inline, record or system-record");
                return false;
            }
            return true;
        });
    if (!parsed.ok) return kUsage;
    if (parsed.help) return printHelp(kCreateHelp);
    std::vector<std::string> files;
    if (!twoPathsFromOperands("create", parsed, "IMAGE and OUT are needed", &files)) return kUsage;
    if (!applyLayoutForm("create", form, &options)) return kUsage;
    if (backup && files[1] == "-") {
        usageError("create", "--backup needs an OUT file");
        return kUsage;
    }

    EmberTidePreview preview;
    if (int status = readImage(files[0], &preview.bytes); status != kOK) return status;
    GSImageHeader header = GSReadImageHeader(preview.bytes.getData(), preview.bytes.getSize());
    if (header.format == GSImageFormat::kUnknown || !header.sizeKnown) {
        message(files[0], "not a JPEG or PNG image");
        return kNoPreview;
    }
    if (header.width > INT_MAX || header.height > INT_MAX) {
        message(files[0], "image too large for a document preview");
        return kNoPreview;
    }
    preview.kind = header.format == GSImageFormat::kPNG ? GSPreviewPNG : GSPreviewJPEG;
    preview.size = {static_cast<int>(header.width), static_cast<int>(header.height)};

    // Nothing is opened at OUT before the image is known to be good: a refused IMAGE leaves an
    // existing OUT as it was.
    std::string error = saveDocument(files[1], backup, preview.bytes.getSize(), [&](GSFile* file) {
        return EmberTideWriteDocument(file, preview, options);
    });
    if (!error.empty()) {
        message(files[1], "cannot write: " + error);
        return kIOError;
    }
    return kOK;
}

} // namespace tool
