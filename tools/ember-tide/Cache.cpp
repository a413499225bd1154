// Cache.cpp - `ember-tide cache`: fills the desktop's thumbnail cache for whole folders, on a
// fixed pool of worker threads, with a progress line on a terminal.
//
// The walk comes first (single-threaded; it gives the total for the progress line), then the
// workers take files from a shared index. Each file is opened once to read its identifier;
// only documents go further. A signal (Ctrl-C) sets a flag that the walk and the workers check
// between steps: a worker that has rendered a thumbnail when it sees the flag drops it, and one
// that is writing finishes the write and the rename, so the cache never holds half an entry.
#include "GSThumbnailCache.h"
#include "GSThumbnailRenderer.h"
#include "Tool.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <mutex>
#include <sched.h>
#include <set>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <unordered_set>
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

constexpr const char* kMimeType = "application/x-ember-tide-document";
// GNOME's thumbnail factory reads failure entries from this folder only: the desktop that would
// run our thumbnailer, see it fail and record the failure here itself.
constexpr const char* kGnomeFailFolder = "gnome-thumbnail-factory";
constexpr int kMaxJobs = 1024;

// Set by the signal handler, read by everyone; lock-free, so the handler may store into it.
std::atomic<int> stopSignal{0};
static_assert(std::atomic<int>::is_always_lock_free);

extern "C" void onStopSignal(int signal) {
    stopSignal.store(signal);
}

bool stopping() {
    return stopSignal.load() != 0;
}

std::string errorText(int error) {
    return std::generic_category().message(error);
}

struct Options {
    const GSCacheSize* size = GSFindCacheSize("large");
    int jobs = 0; // 0: the number of cores
    bool force = false;
    bool json = false;
    std::vector<std::string> paths;
};

// Returns kOK to go on, or the exit status.
int parseOptions(int argc, char** argv, Options* options) {
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        auto value = [&](const char* name, std::string* out) {
            std::string prefix = std::string(name) + "=";
            if (a.rfind(prefix, 0) == 0) {
                *out = a.substr(prefix.size());
                return true;
            }
            if (a != name) return false;
            if (i + 1 < argc) *out = argv[++i];
            return true;
        };
        std::string v;
        if (a == "--help" || a == "-h") {
            std::fputs(kCacheHelp, stdout);
            return -1;
        } else if (value("--size", &v)) {
            options->size = GSFindCacheSize(v);
            if (!options->size) {
                usageError("cache", "SIZE is normal, large, x-large or xx-large");
                return kUsage;
            }
        } else if (value("--jobs", &v) || value("-j", &v)) {
            char* end = nullptr;
            long n = std::strtol(v.c_str(), &end, 10);
            if (v.empty() || *end || n < 1 || n > kMaxJobs) {
                usageError("cache", "N is a whole number from 1 to " + std::to_string(kMaxJobs));
                return kUsage;
            }
            options->jobs = static_cast<int>(n);
        } else if (a == "--force") {
            options->force = true;
        } else if (a == "--json") {
            options->json = true;
        } else if (a == "--") {
            for (++i; i < argc; ++i)
                options->paths.emplace_back(argv[i]);
        } else if (a.size() > 1 && a[0] == '-') {
            usageError("cache", "unknown option " + a);
            return kUsage;
        } else {
            options->paths.push_back(a);
        }
    }
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

// An absolute path without "." and ".." components or a trailing slash, as a file manager
// shows it (symbolic links are kept: the URI is the one the user browses).
std::string absolutePath(const std::string& path) {
    std::filesystem::path p(path);
    if (p.is_relative()) p = std::filesystem::current_path() / p;
    std::string normal = p.lexically_normal().string();
    while (normal.size() > 1 && normal.back() == '/')
        normal.pop_back();
    return normal;
}

// ---------------------------------------------------------------- the walk

struct FolderID {
    dev_t device;
    ino_t inode;
    auto operator<=>(const FolderID&) const = default;
};

// Collects the regular files under the PATHs. Folders are entered once each (by device and
// inode, which also stops loops made by bind mounts); symbolic links to folders are never
// followed, and links to files only when the file lies inside one of the PATHs.
class Walker {
public:
    explicit Walker(const std::string& cacheRoot) {
        struct stat st;
        if (::stat(cacheRoot.c_str(), &st) == 0) cacheFolder = {st.st_dev, st.st_ino};
    }

    void addRoot(const std::string& path, const struct stat& st) {
        if (S_ISDIR(st.st_mode)) {
            if (char* real = ::realpath(path.c_str(), nullptr)) {
                trees.emplace_back(real);
                std::free(real);
            }
            folders.push_back(path);
        } else if (S_ISREG(st.st_mode)) {
            addFile(path);
        }
    }

    void walk() {
        for (const std::string& root : folders)
            walkFolder(root);
    }

    std::vector<std::string> files;
    long unreadableFolders = 0;

private:
    void addFile(const std::string& path) {
        if (known.insert(path).second) files.push_back(path);
    }

    bool enterOnce(const struct stat& st) {
        FolderID id{st.st_dev, st.st_ino};
        return id != cacheFolder && seen.insert(id).second;
    }

    bool insideTrees(const std::string& real) const {
        for (const std::string& tree : trees)
            if (real == tree || tree == "/" ||
                (real.size() > tree.size() && real.compare(0, tree.size(), tree) == 0 &&
                 real[tree.size()] == '/'))
                return true;
        return false;
    }

    void followLink(const std::string& path) {
        struct stat st;
        if (::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return; // dangling, or a folder
        char* real = ::realpath(path.c_str(), nullptr);
        if (!real) return;
        bool inside = insideTrees(real);
        std::free(real);
        if (inside) addFile(path);
    }

    void walkFolder(const std::string& root) {
        struct stat st;
        if (::stat(root.c_str(), &st) != 0 || !enterOnce(st)) return;
        std::vector<std::string> pending{root};
        while (!pending.empty() && !stopping()) {
            std::string folder = std::move(pending.back());
            pending.pop_back();
            DIR* dir = ::opendir(folder.c_str());
            if (!dir) {
                message(folder, "cannot read the folder: " + errorText(errno));
                ++unreadableFolders;
                continue;
            }
            std::string prefix = folder == "/" ? folder : folder + "/";
            while (dirent* entry = ::readdir(dir)) {
                const char* name = entry->d_name;
                if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) continue;
                std::string child = prefix + name;
                unsigned char type = entry->d_type;
                struct stat childStat;
                bool statted = false;
                if (type == DT_UNKNOWN || type == DT_DIR) {
                    if (::lstat(child.c_str(), &childStat) != 0) continue;
                    statted = true;
                    type = S_ISDIR(childStat.st_mode)   ? DT_DIR
                           : S_ISREG(childStat.st_mode) ? DT_REG
                           : S_ISLNK(childStat.st_mode) ? DT_LNK
                                                        : DT_UNKNOWN;
                }
                if (type == DT_DIR) {
                    if (statted && enterOnce(childStat)) pending.push_back(std::move(child));
                } else if (type == DT_REG) {
                    addFile(child);
                } else if (type == DT_LNK) {
                    followLink(child);
                }
            }
            ::closedir(dir);
        }
    }

    std::vector<std::string> folders;
    std::vector<std::string> trees; // the folder PATHs with every link resolved
    std::set<FolderID> seen;
    FolderID cacheFolder{0, 0};
    std::unordered_set<std::string> known;
};

// ---------------------------------------------------------------- one file

enum class Outcome { kWritten, kUpToDate, kFailed, kNotOurs, kAbandoned };

class Filler {
public:
    Filler(const Options& options, const std::string& cacheRoot, bool progressLine)
        : options(options), sizeFolder(cacheRoot + "/" + options.size->name),
          failFolder(cacheRoot + "/fail/ember-tide-" ET_VERSION),
          gnomeFailFolder(cacheRoot + "/fail/" + kGnomeFailFolder), progressLine(progressLine) {}

    std::string makeFolders() const {
        for (const std::string* folder : {&sizeFolder, &failFolder}) {
            std::string problem = GSMakePrivateFolders(*folder);
            if (!problem.empty()) return *folder + ": " + problem;
        }
        return {};
    }

    Outcome process(const std::string& path) {
        int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
        if (fd < 0) {
            report(path, "cannot read: " + errorText(errno));
            return Outcome::kFailed;
        }
        struct stat st;
        unsigned char head[kGSIdentifierBytes];
        ssize_t n = 0;
        bool statted = ::fstat(fd, &st) == 0;
        int error = statted ? 0 : errno;
        if (statted && S_ISREG(st.st_mode)) {
            do {
                n = ::read(fd, head, sizeof head);
            } while (n < 0 && errno == EINTR);
            if (n < 0) error = errno;
        }
        ::close(fd);
        if (error) {
            report(path, "cannot read: " + errorText(error));
            return Outcome::kFailed;
        }
        if (!S_ISREG(st.st_mode) || !GSStartsAsDocument(head, static_cast<size_t>(n)))
            return Outcome::kNotOurs;

        const long long mtime = st.st_mtime;
        const std::string uri = GSFileURI(path);
        const std::string name = GSCacheEntryName(uri);
        if (!options.force) {
            if (GSCacheEntryIsCurrent(sizeFolder + "/" + name, uri, mtime))
                return Outcome::kUpToDate;
            if (GSCacheEntryIsCurrent(failFolder + "/" + name, uri, mtime)) {
                report(path, "no usable preview (a failure recorded earlier; --force tries again)");
                return Outcome::kFailed;
            }
        }
        if (stopping()) return Outcome::kAbandoned;

        GSThumbnailRequest request;
        request.path = path;
        request.maxSize = options.size->pixels;
        request.text = {{"Thumb::URI", uri},
                        {"Thumb::MTime", std::to_string(mtime)},
                        {"Thumb::Size", std::to_string(static_cast<long long>(st.st_size))},
                        {"Thumb::Mime", kMimeType},
                        {"Software", "ember-tide " ET_VERSION}};
        GSThumbnailResult result = GSRenderThumbnail(request);
        if (stopping()) return Outcome::kAbandoned;

        switch (result.status) {
        case GSThumbnailStatus::kOK: {
            std::string problem = GSWriteCacheEntry(sizeFolder, name, result.png);
            if (!problem.empty()) {
                report(path, "cannot write its thumbnail in " + sizeFolder + ": " + problem);
                return Outcome::kFailed;
            }
            ::unlink((failFolder + "/" + name).c_str()); // an earlier failure no longer holds
            return Outcome::kWritten;
        }
        case GSThumbnailStatus::kCannotOpen:
            // The standard keeps nothing, failure entries included, for files that cannot be read.
            report(path, "cannot read: " + result.message);
            return Outcome::kFailed;
        case GSThumbnailStatus::kNoPreview:
        case GSThumbnailStatus::kUndecodable:
            break;
        }
        report(path, result.message);
        std::vector<unsigned char> entry = GSMakeFailureEntry(uri, mtime, "ember-tide " ET_VERSION);
        for (const std::string* folder : {&failFolder, &gnomeFailFolder}) {
            std::string problem = GSMakePrivateFolders(*folder);
            if (problem.empty()) problem = GSWriteCacheEntry(*folder, name, entry);
            if (!problem.empty())
                report(path, "cannot record the failure in " + *folder + ": " + problem);
        }
        return Outcome::kFailed;
    }

    // Messages share the terminal with the progress line: the line is cleared first and drawn
    // again at the next tick.
    void report(const std::string& path, const std::string& what) {
        std::lock_guard<std::mutex> lock(outputMutex);
        if (progressLine) {
            std::fputs("\r\033[K", stdout);
            std::fflush(stdout);
        }
        message(path, what);
    }

    std::mutex outputMutex;

private:
    const Options& options;
    const std::string sizeFolder, failFolder, gnomeFailFolder;
    const bool progressLine;
};

// ---------------------------------------------------------------- progress and the pool

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
    std::printf("\r\033[K%ld/%ld files  %.1f files/s  %s", done, total, rate, left.c_str());
    std::fflush(stdout);
}

class SignalGuard {
public:
    SignalGuard() {
        struct sigaction action;
        std::memset(&action, 0, sizeof action);
        action.sa_handler = onStopSignal;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART;
        for (size_t i = 0; i < std::size(kSignals); ++i)
            ::sigaction(kSignals[i], &action, &previous[i]);
    }
    ~SignalGuard() {
        for (size_t i = 0; i < std::size(kSignals); ++i)
            ::sigaction(kSignals[i], &previous[i], nullptr);
    }
    SignalGuard(const SignalGuard&) = delete;
    SignalGuard& operator=(const SignalGuard&) = delete;

private:
    static constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
    struct sigaction previous[std::size(kSignals)];
};

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
            message(path, errorText(errno));
            return kUsage;
        }
        roots.emplace_back(absolute, st);
    }

    const bool progressLine = !options.json && ::isatty(STDOUT_FILENO);
    Filler filler(options, cacheRoot, progressLine);
    if (std::string problem = filler.makeFolders(); !problem.empty()) {
        std::fprintf(stderr, "ember-tide: cannot make the thumbnail cache folder %s\n",
                     problem.c_str());
        return kUsage;
    }

    stopSignal.store(0);
    SignalGuard signals;
    const auto start = std::chrono::steady_clock::now();
    auto elapsed = [&] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };

    Walker walker(cacheRoot);
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
    auto work = [&] {
        for (;;) {
            long i = next.fetch_add(1);
            if (i >= total || stopping()) break;
            switch (filler.process(files[static_cast<size_t>(i)])) {
            case Outcome::kWritten:
                ++counts.written;
                break;
            case Outcome::kUpToDate:
                ++counts.upToDate;
                break;
            case Outcome::kFailed:
                ++counts.failed;
                break;
            case Outcome::kNotOurs:
                ++counts.notOurs;
                break;
            case Outcome::kAbandoned:
                continue;
            }
            ++counts.done;
        }
        std::lock_guard<std::mutex> lock(poolMutex);
        --running;
        poolDone.notify_all();
    };

    int jobs = options.jobs > 0 ? options.jobs : coreCount();
    jobs = static_cast<int>(std::max(1L, std::min<long>(jobs, total)));
    std::vector<std::thread> pool;
    running = jobs;
    for (int j = 0; j < jobs; ++j)
        pool.emplace_back(work);
    {
        std::unique_lock<std::mutex> lock(poolMutex);
        while (!poolDone.wait_for(lock, std::chrono::milliseconds(100),
                                  [&] { return running == 0; })) {
            if (!progressLine) continue;
            std::lock_guard<std::mutex> output(filler.outputMutex);
            drawProgress(counts.done, total, elapsed(), false);
        }
    }
    for (std::thread& t : pool)
        t.join();
    const double seconds = elapsed();

    const int signal = stopSignal.load();
    if (progressLine) {
        drawProgress(counts.done, total, seconds, true);
        std::printf("\n%ld written, %ld up to date, %ld failed, %ld not Ember Tide documents\n",
                    counts.written.load(), counts.upToDate.load(), counts.failed.load(),
                    counts.notOurs.load());
    }
    if (options.json)
        std::printf("{\"written\": %ld, \"up_to_date\": %ld, \"failed\": %ld, \"not_ours\": %ld, "
                    "\"seconds\": %.3f}\n",
                    counts.written.load(), counts.upToDate.load(), counts.failed.load(),
                    counts.notOurs.load(), seconds);
    std::fflush(stdout);
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
