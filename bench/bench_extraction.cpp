// bench_extraction.cpp - GSGetThumbnail on documents on disk, small and behind 300 MB of data.
//
// A thumbnailer is asked for previews of documents of any size, so extraction must cost the
// same whether the preview follows a few bytes or hundreds of megabytes of the editor's own
// data: unknown items are skipped by seeking, never read. Each layout is measured side by side
// on a small document (padMB:0), on one whose preview follows a 3 MB unknown item and on one
// where it follows 300 MB (written as sparse holes, so they are cheap to make), with the same
// real JPEG preview. 3 MB is already far beyond any read buffer, so 3 against 300 shows the
// cost of the distance alone. Two layouts: version 2 in the long form with the picture inline,
// and version 3.2 in the byte form with a picture-data record and the object table at the very
// end of the file. The documents are written once into a private folder under $TMPDIR (or
// /tmp) and removed at the end; after the runs, the medians of the smallest and the largest
// document and their ratio are printed for each layout, in real and in CPU time.
#include "SampleImages.h"
#include "fileformat/GSFile.h"
#include "fileformat/GSFormatNumbers.h"
#include "storage/GSFileWorker.h"
#include "thumbnail/EmberTideDocumentWriter.h"
#include "thumbnail/GSGetThumbnail.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace {

constexpr long kPaddingsMB[] = {0, 3, 300};
constexpr long kLargestMB = 300;

struct Layout {
    const char* name;
    EmberTideDocumentOptions options;
};

using O = EmberTideDocumentOptions;
const Layout kLayouts[] = {
    {"v2_long_inline", {0x0200, false, O::kInline, false, 0}},
    {"v3_byte_record", {0x0302, true, O::kRecord, false, 0}},
};

// The private folder and the documents in it; everything is removed when it goes.
class DocumentFolder {
public:
    DocumentFolder() {
        const char* tmp = std::getenv("TMPDIR");
        std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/et-bench-XXXXXX";
        if (mkdtemp(pattern.data())) folder = pattern;
    }
    ~DocumentFolder() {
        std::error_code ignored;
        if (!folder.empty()) std::filesystem::remove_all(folder, ignored);
    }
    DocumentFolder(const DocumentFolder&) = delete;
    DocumentFolder& operator=(const DocumentFolder&) = delete;

    bool ok() const { return !folder.empty(); }
    std::string path(int layout, long paddingMB) const {
        return folder + "/" + kLayouts[layout].name + "-" + std::to_string(paddingMB) + "MB.etd";
    }

private:
    std::string folder;
};

const DocumentFolder* documents = nullptr;
EmberTidePreview preview;

bool writeDocument(const std::string& path, EmberTideDocumentOptions options) {
    GSFile file(GSFileSpec(GSString(path.c_str(), -1, GSString::kUTF8)), 0);
    file.getFileWorker()->setAccessMode("wb+");
    bool ok = file.open() == 0 && EmberTideWriteDocument(&file, preview, options) == 0;
    return file.close(GSCloseKeep) == 0 && ok;
}

bool writeDocuments() {
    samples::Picture picture = samples::drawLandscape(320, 240, false);
    std::vector<unsigned char> jpeg = samples::encodeJPEG(picture, 85);
    preview.kind = 2;
    preview.infoValue = 1;
    preview.size = {picture.width, picture.height};
    if (preview.bytes.replace(0, 0, jpeg.data(), static_cast<long>(jpeg.size()))) return false;
    for (int layout = 0; layout < 2; ++layout) {
        for (long mb : kPaddingsMB) {
            EmberTideDocumentOptions options = kLayouts[layout].options;
            options.paddingBefore = mb * 1024 * 1024;
            std::string path = documents->path(layout, mb);
            if (!writeDocument(path, options)) return false;
            struct stat info {};
            if (stat(path.c_str(), &info) == 0)
                benchmark::AddCustomContext(
                    std::string(kLayouts[layout].name) + "-" + std::to_string(mb) + "MB",
                    std::to_string(info.st_size) + " bytes, " +
                        std::to_string(info.st_blocks * 512 / 1024) + " KiB on disk");
        }
    }
    return true;
}

void BM_Extract(benchmark::State& state, int layout) {
    const std::string path = documents->path(layout, state.range(0));
    const GSFileSpec spec{GSString(path.c_str())};
    for (auto _ : state) {
        GSDynaArray<unsigned char> bytes;
        int kind = 0, infoValue = 0;
        GSTSize<int> size;
        if (GSGetThumbnail(spec, &bytes, &kind, &infoValue, &size) ||
            bytes.getSize() != preview.bytes.getSize() || kind != preview.kind) {
            state.SkipWithError("the preview was not extracted");
            break;
        }
        benchmark::DoNotOptimize(bytes.getData());
    }
    std::error_code error;
    auto fileSize = std::filesystem::file_size(path, error);
    if (!error) state.SetLabel("file " + std::to_string(fileSize) + " bytes");
}

BENCHMARK_CAPTURE(BM_Extract, v2_long_inline, 0)
    ->ArgName("padMB")
    ->Arg(kPaddingsMB[0])
    ->Arg(kPaddingsMB[1])
    ->Arg(kPaddingsMB[2])
    ->Repetitions(5)
    ->DisplayAggregatesOnly(true)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_Extract, v3_byte_record, 1)
    ->ArgName("padMB")
    ->Arg(kPaddingsMB[0])
    ->Arg(kPaddingsMB[1])
    ->Arg(kPaddingsMB[2])
    ->Repetitions(5)
    ->DisplayAggregatesOnly(true)
    ->Unit(benchmark::kMicrosecond);

// Passes everything to the usual display reporter and keeps the median of each extraction run,
// so that the ratio large over small can be printed at the end.
class MedianRatioReporter : public benchmark::BenchmarkReporter {
public:
    explicit MedianRatioReporter(benchmark::BenchmarkReporter* display) : display(display) {}

    bool ReportContext(const Context& context) override { return display->ReportContext(context); }
    void ReportRuns(const std::vector<Run>& runs) override {
        display->ReportRuns(runs);
        for (const Run& run : runs)
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median" &&
                !run.error_occurred)
                medians[run.run_name.function_name][run.run_name.args] = {run.GetAdjustedRealTime(),
                                                                          run.GetAdjustedCPUTime()};
    }
    void Finalize() override {
        display->Finalize();
        // Only after console output: machine-readable formats stay as they are.
        if (!dynamic_cast<benchmark::ConsoleReporter*>(display)) return;
        const std::string small = "padMB:0";
        const std::string large = "padMB:" + std::to_string(kLargestMB);
        for (const auto& [name, byArgs] : medians) {
            auto s = byArgs.find(small), l = byArgs.find(large);
            if (s == byArgs.end() || l == byArgs.end() || s->second.real <= 0 || s->second.cpu <= 0)
                continue;
            std::printf("%s: medians small / after %ld MB: real %.2f / %.2f us (ratio %.2f), "
                        "CPU %.2f / %.2f us (ratio %.2f)\n",
                        name.c_str(), kLargestMB, s->second.real, l->second.real,
                        l->second.real / s->second.real, s->second.cpu, l->second.cpu,
                        l->second.cpu / s->second.cpu);
        }
    }

private:
    struct Median {
        double real;
        double cpu;
    };
    benchmark::BenchmarkReporter* display;
    std::map<std::string, std::map<std::string, Median>> medians;
};

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    DocumentFolder folder;
    documents = &folder;
    if (!folder.ok() || !writeDocuments()) {
        std::fprintf(stderr, "bench_extraction: cannot write the documents\n");
        return 1;
    }
    MedianRatioReporter reporter(benchmark::CreateDefaultDisplayReporter());
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
