// Cache.cpp - `ember-tide cache`: fills the desktop's thumbnail cache for whole folders, on a
// fixed pool of worker threads, with a progress line on a terminal.
//
// This file is the command itself: its options and help, the confinement, the walk, and the
// summary. The walk comes first (CacheWalk.h; it gives the total for the progress line), then
// the workers (CacheWorkers.h) take the files and hand each to the filler (CacheFiller.h), while
// this thread redraws the progress line (CacheProgress.h). A signal (Ctrl-C) sets the flag of
// CacheStop.h, which the walk and the workers check between steps.
#include "Arguments.h"
#include "storage/GSAtomicFile.h"
#include "CacheFiller.h"
#include "CacheProgress.h"
#include "CacheStop.h"
#include "CacheWalk.h"
#include "CacheWorkers.h"
#include "Confinement.h"
#include "Tool.h"
#include "desktop/GSThumbnailCache.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace tool {

namespace {

const char* kCacheHelp =
    "Usage: ember-tide cache [--size SIZE] [--jobs N] [--force] [--json] PATH...\n"
    "Fills the desktop's thumbnail cache ($XDG_CACHE_HOME/thumbnails, by default\n"
    "~/.cache/thumbnails) for every Ember Tide document in the PATHs, walking folders\n"
    "recursively, so that file managers that follow the freedesktop thumbnail rules (GNOME, KDE,\n"
    "Xfce) show the pictures at once. Documents are recognised by their first bytes, whatever\n"
    "their names. Symbolic links to files inside the PATHs are followed; links to folders and\n"
    "links that lead out of the PATHs are not.\n"
    "\n"
    "  --size SIZE  normal (128 pixels), large (256, the default), x-large (512) or xx-large "
    "(1024)\n"
    "  --jobs N     worker threads (default: the number of cores)\n"
    "  --force      make the thumbnails again even where they are up to date\n"
    "  --json       no progress line; print one summary object at the end:\n"
    "               {\"written\", \"up_to_date\", \"failed\", \"not_ours\", \"seconds\"}\n"
    "\n"
    "A thumbnail whose Thumb::URI and Thumb::MTime match the file is up to date and kept. A\n"
    "document without a usable preview gets a failure entry (in "
    "thumbnails/fail/ember-tide-" ET_VERSION "/,\n"
    "and the same in GNOME's failure folder, which is the only one GNOME reads) so that desktops\n"
    "stop retrying it until it changes; it counts as failed on every run until then. Files that "
    "are\n"
    "no documents, selections included, count as not_ours. On a terminal one line shows the files\n"
    "done, files per second and the time left. Ctrl-C stops cleanly: no half-written thumbnail is\n"
    "left in the cache.\n"
    "\n"
    "Exit status: 0 done; 1 some documents failed (each is named on stderr); 2 usage error, or "
    "the\n"
    "cache folder cannot be made.\n"
    "Example: ember-tide cache --size large ~/Pictures\n";

constexpr int kMaxJobs = 1024;

struct Options {
    const GSCacheSize* size = GSFindCacheSize("large");
    int jobs = 0; // 0: the number of cores
    bool force = false;
    bool json = false;
    std::vector<std::string> paths;
};

// Returns kOK to go on, -1 after the help, or the exit status.
int parseOptions(int argc, char** argv, Options* options) {
    enum : int { kSize = 300, kForce, kJSON };
    ParsedArguments parsed = parseArguments(
        "cache", argc, argv, "j:",
        {{"size", required_argument, nullptr, kSize},
         {"jobs", required_argument, nullptr, 'j'},
         {"force", no_argument, nullptr, kForce},
         {"json", no_argument, nullptr, kJSON}},
        [&](int key, const char* value) {
            if (key == kForce) return options->force = true;
            if (key == kJSON) return options->json = true;
            if (key == kSize) {
                options->size = GSFindCacheSize(value);
                if (!options->size)
                    usageError("cache", "SIZE is normal, large, x-large or xx-large");
                return options->size != nullptr;
            }
            char* end = nullptr;
            long n = std::strtol(value, &end, 10);
            if (!*value || *end || n < 1 || n > kMaxJobs) {
                usageError("cache", "N is a whole number from 1 to " + std::to_string(kMaxJobs));
                return false;
            }
            options->jobs = static_cast<int>(n);
            return true;
        });
    if (!parsed.ok) return kUsage;
    if (parsed.help) {
        printHelp(kCacheHelp);
        return -1;
    }
    if (!pathsFromOperands("cache", parsed, &options->paths)) return kUsage;
    if (options->paths.empty()) {
        usageError("cache", "PATH is needed");
        return kUsage;
    }
    return kOK;
}

} // namespace

int runCache(int argc, char** argv) {
    Options options;
    if (int status = parseOptions(argc, argv, &options); status != kOK)
        return status < 0 ? kOK : status;

    const std::string cacheRoot = GSThumbnailCacheRoot();
    if (cacheRoot.empty()) {
        usageError("cache", "no cache folder: neither XDG_CACHE_HOME nor a home folder is set");
        return kUsage;
    }
    std::vector<std::pair<std::string, struct stat>> roots;
    for (const std::string& path : options.paths) {
        struct stat st;
        std::string absolute = absolutePath(path);
        if (::stat(absolute.c_str(), &st) != 0) {
            message(path, GSErrorText(errno));
            return kUsage;
        }
        roots.emplace_back(absolute, st);
    }

    // Progress is for a person at a terminal, on stderr: stdout carries only results.
    const bool progressLine = !options.json && ::isatty(STDERR_FILENO);
    CacheFiller filler(options.size, options.force, cacheRoot, progressLine);
    if (std::string problem = filler.makeFolders(); !problem.empty()) {
        std::fprintf(stderr, "ember-tide: cannot make the thumbnail cache folder %s\n",
                     problem.c_str());
        return kUsage;
    }

    // From here on the process reads the PATHs and reads and writes the cache, nothing else.
    Confinement confinement;
    for (const auto& root : roots)
        confinement.paths.push_back({root.first, kReadFiles | kListFolders});
    confinement.paths.push_back(
        {cacheRoot, kReadFiles | kListFolders | kWriteFiles | kMakeFolders});
    confineProcess(confinement);

    resetStop();
    SignalGuard signals;
    const auto start = std::chrono::steady_clock::now();
    auto elapsed = [&] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };

    CacheWalker walker(cacheRoot);
    for (const auto& [path, st] : roots)
        walker.addRoot(path, st);
    walker.walk();
    const std::vector<std::string>& files = walker.files;
    const long total = static_cast<long>(files.size());

    CacheCounts counts;
    counts.failed = walker.unreadableFolders;
    CacheWorkers workers(files, options.jobs, filler, counts);
    const bool finished = workers.run([&] {
        if (!progressLine) return;
        std::lock_guard<std::mutex> output(filler.outputMutex);
        drawProgress(counts.done, total, elapsed(), false);
    });
    const double seconds = elapsed();

    const int signal = stopSignalNumber();
    if (progressLine) {
        drawProgress(counts.done, total, seconds, true);
        std::fprintf(stderr,
                     "\n%ld written, %ld up to date, %ld failed, %ld not Ember Tide documents\n",
                     counts.written.load(), counts.upToDate.load(), counts.failed.load(),
                     counts.notOurs.load());
    }
    if (options.json)
        std::printf("{\"written\": %ld, \"up_to_date\": %ld, \"failed\": %ld, \"not_ours\": %ld, "
                    "\"seconds\": %.3f}\n",
                    counts.written.load(), counts.upToDate.load(), counts.failed.load(),
                    counts.notOurs.load(), seconds);
    std::fflush(stdout);
    if (!finished) std::_Exit(kNoPreview); // a lost worker can be neither joined nor left
    if (signal) {
        std::fprintf(stderr, "ember-tide: cache: stopped after %ld of %ld files\n",
                     counts.done.load(), total);
        // Die of the signal, as the shell expects of an interrupted command.
        std::signal(signal, SIG_DFL);
        std::raise(signal);
    }
    return counts.failed > 0 ? kNoPreview : kOK;
}

} // namespace tool
