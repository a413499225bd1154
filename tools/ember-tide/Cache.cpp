// Cache.cpp - `ember-tide cache`: fills the desktop's thumbnail cache for whole folders, on a
// fixed pool of worker threads, with a progress line on a terminal.
//
// The walk comes first (CacheWalk.h; it gives the total for the progress line), then the
// workers take files from a shared index and hand each to the filler (CacheFiller.h). A signal
// (Ctrl-C) sets the flag of CacheStop.h, which the walk and the workers check between steps.
#include "Arguments.h"
#include "CacheFiller.h"
#include "CacheStop.h"
#include "CacheWalk.h"
#include "Confinement.h"
#include "GSThumbnailCache.h"
#include "GSWorkDeadline.h"
#include "Tool.h"
#include "Watchdog.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <mutex>
#include <new>
#include <sched.h>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <thread>
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

int coreCount() {
    cpu_set_t set;
    if (::sched_getaffinity(0, sizeof set, &set) == 0 && CPU_COUNT(&set) > 0)
        return CPU_COUNT(&set);
    unsigned n = std::thread::hardware_concurrency();
    return n > 0 ? static_cast<int>(n) : 1;
}

struct Counts {
    std::atomic<long> written{0}, upToDate{0}, failed{0}, notOurs{0}, done{0};
};

std::string clockText(double seconds) {
    long s = static_cast<long>(seconds + 0.5);
    char text[32];
    if (s >= 3600)
        std::snprintf(text, sizeof text, "%ld:%02ld:%02ld", s / 3600, s / 60 % 60, s % 60);
    else
        std::snprintf(text, sizeof text, "%ld:%02ld", s / 60, s % 60);
    return text;
}

void drawProgress(long done, long total, double seconds, bool last) {
    double rate = seconds > 0 ? static_cast<double>(done) / seconds : 0;
    std::string left = last       ? "in " + clockText(seconds)
                       : rate > 0 ? clockText(static_cast<double>(total - done) / rate) + " left"
                                  : "--:-- left";
    std::fprintf(stderr, "\r\033[K%ld/%ld files  %.1f files/s  %s", done, total, rate,
                 left.c_str());
    std::fflush(stderr);
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
            message(path, std::generic_category().message(errno));
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

    Counts counts;
    counts.failed = walker.unreadableFolders;
    std::atomic<long> next{0};
    std::mutex poolMutex;
    std::condition_variable poolDone;
    int running = 0;
    int jobs = options.jobs > 0 ? options.jobs : coreCount();
    jobs = static_cast<int>(std::max(1L, std::min<long>(jobs, total)));
    // A file whose work outlasts its budget fails alone (the decoders and the scaler check the
    // deadline). One whose work does not stop even at the backstop holds its worker for good:
    // it is recorded as failed so that the next run goes past it, and this run ends with its
    // summary without waiting for that worker.
    std::atomic<int> lostWorkers{0};
    std::vector<bool> lost(static_cast<size_t>(jobs)); // guarded by poolMutex
    CacheWatchdog watchdog(jobs, [&](int worker, const std::string& path) {
        filler.report(path, "more than " + fileCPUSecondsText() +
                                " s of processor time; given up, and the run stops here");
        filler.recordFailure(path);
        ++counts.failed;
        ++counts.done;
        ++lostWorkers;
        std::lock_guard<std::mutex> lock(poolMutex);
        lost[static_cast<size_t>(worker)] = true;
        --running;
        poolDone.notify_all();
    });
    auto process = [&](int worker, const std::string& path) {
        watchdog.begin(worker, path);
        CacheOutcome outcome = CacheOutcome::kFailed;
        try {
            GSWorkDeadline deadline(watchdog.fileBudget());
            workSlowlyIfAsked(path);
            outcome = filler.process(path);
        } catch (const std::bad_alloc&) {
            // The workers share the address-space limit that the watchdog set.
            filler.report(path, "out of memory");
        }
        watchdog.end(worker);
        return outcome;
    };
    auto work = [&](int worker) {
        for (;;) {
            long i = next.fetch_add(1);
            if (i >= total || stopping() || lostWorkers > 0) break;
            const CacheOutcome outcome = process(worker, files[static_cast<size_t>(i)]);
            if (lostWorkers > 0) {
                std::lock_guard<std::mutex> lock(poolMutex);
                if (lost[static_cast<size_t>(worker)]) break; // back too late: counted already
            }
            switch (outcome) {
            case CacheOutcome::kWritten:
                ++counts.written;
                break;
            case CacheOutcome::kUpToDate:
                ++counts.upToDate;
                break;
            case CacheOutcome::kFailed:
                ++counts.failed;
                break;
            case CacheOutcome::kNotOurs:
                ++counts.notOurs;
                break;
            case CacheOutcome::kAbandoned:
                continue;
            }
            ++counts.done;
        }
        std::lock_guard<std::mutex> lock(poolMutex);
        if (!lost[static_cast<size_t>(worker)]) --running; // else counted out already
        poolDone.notify_all();
    };

    std::vector<std::thread> pool;
    running = jobs;
    for (int j = 0; j < jobs; ++j)
        pool.emplace_back(work, j);
    {
        std::unique_lock<std::mutex> lock(poolMutex);
        while (!poolDone.wait_for(lock, std::chrono::milliseconds(100),
                                  [&] { return running == 0; })) {
            if (!progressLine) continue;
            std::lock_guard<std::mutex> output(filler.outputMutex);
            drawProgress(counts.done, total, elapsed(), false);
        }
    }
    if (lostWorkers == 0)
        for (std::thread& t : pool)
            t.join();
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
    if (lostWorkers > 0) std::_Exit(kNoPreview); // a lost worker can be neither joined nor left
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
