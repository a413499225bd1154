// bench_strings.cpp - GSString: copies, appending, reading from files, code-page conversion
// and enumeration.
//
// Copies must allocate nothing (counted with AllocationCounter), appending one character at a
// time must cost the same per character at 10^3 and 10^6 characters, and the conversions run
// beside glibc's iconv on the same text in the same run: convertEncoding between Windows-1252
// and UTF-8 (1 MB), and the decomposing enumerator against iconv's UTF-8 to UTF-32 (1 MB of
// mixed UTF-8; iconv does not decompose, so it does a little less work). Reading 10^5 string
// records from a memory file reports strings per second and allocations per string: texts of
// up to 46 bytes are read into the string itself and must allocate nothing.
#include "AllocationCounter.h"
#include "BenchMemoryFile.h"
#include "text/GSString.h"
#include "text/GSStringUniCharEnumerator.h"

#include <benchmark/benchmark.h>

#include <iconv.h>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr long kMegabyte = 1 << 20;

// Western European prose in UTF-8: mostly ASCII, with accented letters, typographic quotes
// and dashes, the euro sign and ligature-prone words, all of them in Windows-1252.
const char* const kWesternText =
    "Le garçon a commandé un café crème à la brasserie « Chez Zoë » pour 3,50 € — déjà vu. "
    "Die Straße führt über die Brücke; Ärger, Öl und Übermut. “Quoted” and ‘single’ text… "
    "Señor Muñoz añadió: ¿qué tal? Æble, Œuvre, Šárka, Žofie, Ÿvonne; fiancée naïve façade. ";

// Mixed UTF-8: the above, plus decomposed accents, Greek, Cyrillic, CJK and emoji.
const char* const kMixedText =
    "Le garçon a commandé un café crème — déjà vu. Die Straße führt über die Brücke. "
    "e\xCC\x81t\xC3\xA9 o\xCC\x82\xCC\x83 A\xCC\x8A "
    "Αλφάβητο και κείμενο, Кириллица и текст, 漢字と仮名の混じった文章です。 "
    "😀 🚀 🎉 ";

std::string repeatToSize(const char* unit, long size) {
    std::string text;
    while (static_cast<long>(text.size()) < size)
        text += unit;
    text.resize(static_cast<size_t>(size));
    // Cut at a character boundary, so that every converter sees whole characters.
    while (!text.empty() && (static_cast<unsigned char>(text.back()) & 0xC0) == 0x80)
        text.pop_back();
    if (!text.empty() && static_cast<unsigned char>(text.back()) >= 0xC0) text.pop_back();
    return text;
}

class Iconv {
public:
    Iconv(const char* to, const char* from) : cd(iconv_open(to, from)) {
        if (cd == reinterpret_cast<iconv_t>(-1)) throw std::runtime_error("iconv_open failed");
    }
    ~Iconv() { iconv_close(cd); }
    Iconv(const Iconv&) = delete;
    Iconv& operator=(const Iconv&) = delete;
    // Converts all of `in` into `out` (large enough); returns the bytes written.
    size_t convert(const std::string& in, std::vector<char>* out) {
        iconv(cd, nullptr, nullptr, nullptr, nullptr);
        char* inp = const_cast<char*>(in.data());
        size_t inLeft = in.size();
        char* outp = out->data();
        size_t outLeft = out->size();
        if (iconv(cd, &inp, &inLeft, &outp, &outLeft) == static_cast<size_t>(-1))
            throw std::runtime_error("iconv failed");
        return out->size() - outLeft;
    }

private:
    iconv_t cd;
};

struct Texts {
    std::string utf8;    // about 1 MB of Western text in UTF-8
    std::string windows; // the same text in Windows-1252 (a little under 1 MB)
    std::string mixed;   // 1 MB of mixed UTF-8
    Texts() {
        utf8 = repeatToSize(kWesternText, kMegabyte + kMegabyte / 8);
        GSString s(utf8.data(), static_cast<long>(utf8.size()), GSString::kUTF8);
        if (s.convertEncoding(GSString::kWindows) != 0) throw std::runtime_error("lossy text");
        windows.assign(s.getConstAddr(), static_cast<size_t>(s.getLength()));
        windows.resize(kMegabyte);
        GSString back(windows.data(), kMegabyte, GSString::kWindows);
        back.convertEncoding(GSString::kUTF8);
        utf8.assign(back.getConstAddr(), static_cast<size_t>(back.getLength()));
        mixed = repeatToSize(kMixedText, kMegabyte);
    }
};

const Texts& texts() {
    static const Texts t;
    return t;
}

void BM_CopyString(benchmark::State& state) {
    GSString source;
    const std::string content(static_cast<size_t>(state.range(0)), 'x');
    if (state.range(0) == 0)
        source = GSString("a borrowed literal");
    else
        source = content.c_str();
    long allocations = 0;
    for (auto _ : state) {
        long before = bench_support::allocationCount();
        GSString copy(source);
        benchmark::DoNotOptimize(copy.getConstAddr());
        GSString assigned;
        assigned = copy;
        benchmark::DoNotOptimize(assigned.getConstAddr());
        allocations += bench_support::allocationCount() - before;
    }
    state.counters["allocs_per_copy"] =
        benchmark::Counter(static_cast<double>(allocations) / (2.0 * state.iterations()));
    state.SetLabel(state.range(0) == 0 ? "borrowed" : state.range(0) <= 46 ? "inline" : "buffer");
}
BENCHMARK(BM_CopyString)->Arg(0)->Arg(40)->Arg(1000);

// 10^5 UTF-8 records of range(0) bytes each (classic layout), each read into a fresh string as
// a record reader does.
void BM_ReadStrings(benchmark::State& state) {
    constexpr long kStrings = 100000;
    const std::string content(static_cast<size_t>(state.range(0)), 'y');
    const GSString text = GSString::withCopyOf(content.c_str());
    GSFile file;
    if (!bench_support::openMemoryFile(&file, 0)) {
        state.SkipWithError("no memory file");
        return;
    }
    for (long i = 0; i < kStrings; ++i)
        text.write(&file);
    long allocations = 0;
    for (auto _ : state) {
        file.seek(0, 0);
        long before = bench_support::allocationCount();
        for (long i = 0; i < kStrings; ++i) {
            GSString s;
            if (s.read(&file)) state.SkipWithError("read failed");
            benchmark::DoNotOptimize(s.getConstAddr());
        }
        allocations += bench_support::allocationCount() - before;
    }
    state.SetItemsProcessed(state.iterations() * kStrings);
    state.counters["allocs_per_string"] = benchmark::Counter(
        static_cast<double>(allocations) / (static_cast<double>(kStrings) * state.iterations()));
    state.SetLabel(state.range(0) <= 46 ? "inline" : "buffer");
}
BENCHMARK(BM_ReadStrings)->Arg(12)->Arg(46)->Arg(100);

void BM_AppendChar(benchmark::State& state) {
    const long n = state.range(0);
    for (auto _ : state) {
        GSString s;
        for (long i = 0; i < n; ++i)
            s.add(static_cast<char>('a' + (i & 15)));
        benchmark::DoNotOptimize(s.getConstAddr());
    }
    // Seconds per appended character, shown with an SI prefix ("2.1n" is 2.1 ns).
    state.counters["s_per_append"] =
        benchmark::Counter(static_cast<double>(n), benchmark::Counter::kIsIterationInvariantRate |
                                                       benchmark::Counter::kInvert);
}
BENCHMARK(BM_AppendChar)->Arg(1000)->Arg(100000)->Arg(1000000);

// The same appends to a std::string: what the machine's allocator and fresh memory cost at
// each size, for comparison.
void BM_AppendCharStdString(benchmark::State& state) {
    const long n = state.range(0);
    for (auto _ : state) {
        std::string s;
        for (long i = 0; i < n; ++i)
            s.push_back(static_cast<char>('a' + (i & 15)));
        benchmark::DoNotOptimize(s.data());
    }
    state.counters["s_per_append"] =
        benchmark::Counter(static_cast<double>(n), benchmark::Counter::kIsIterationInvariantRate |
                                                       benchmark::Counter::kInvert);
}
BENCHMARK(BM_AppendCharStdString)->Arg(1000)->Arg(100000)->Arg(1000000);

void BM_ConvertWindowsToUTF8(benchmark::State& state) {
    const GSString source(texts().windows.data(), kMegabyte, GSString::kWindows);
    for (auto _ : state) {
        GSString s(source);
        s.convertEncoding(GSString::kUTF8);
        benchmark::DoNotOptimize(s.getConstAddr());
    }
    state.SetBytesProcessed(state.iterations() * kMegabyte);
}
BENCHMARK(BM_ConvertWindowsToUTF8);

void BM_IconvWindowsToUTF8(benchmark::State& state) {
    Iconv cd("UTF-8", "CP1252");
    std::vector<char> out(4 * kMegabyte);
    for (auto _ : state)
        benchmark::DoNotOptimize(cd.convert(texts().windows, &out));
    state.SetBytesProcessed(state.iterations() * kMegabyte);
}
BENCHMARK(BM_IconvWindowsToUTF8);

void BM_ConvertUTF8ToWindows(benchmark::State& state) {
    const std::string& utf8 = texts().utf8;
    const GSString source(utf8.data(), static_cast<long>(utf8.size()), GSString::kUTF8);
    for (auto _ : state) {
        GSString s(source);
        s.convertEncoding(GSString::kWindows);
        benchmark::DoNotOptimize(s.getConstAddr());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<long>(utf8.size()));
}
BENCHMARK(BM_ConvertUTF8ToWindows);

void BM_IconvUTF8ToWindows(benchmark::State& state) {
    Iconv cd("CP1252", "UTF-8");
    std::vector<char> out(2 * kMegabyte);
    for (auto _ : state)
        benchmark::DoNotOptimize(cd.convert(texts().utf8, &out));
    state.SetBytesProcessed(state.iterations() * static_cast<long>(texts().utf8.size()));
}
BENCHMARK(BM_IconvUTF8ToWindows);

void BM_EnumerateDecomposing(benchmark::State& state) {
    const std::string& mixed = texts().mixed;
    const GSString source(mixed.data(), static_cast<long>(mixed.size()), GSString::kUTF8);
    for (auto _ : state) {
        GSStringUniCharEnumerator e(source, 1, 0);
        unsigned code, sum = 0;
        while (e.getNext(&code))
            sum += code;
        benchmark::DoNotOptimize(sum);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<long>(mixed.size()));
}
BENCHMARK(BM_EnumerateDecomposing);

void BM_IconvUTF8ToUTF32(benchmark::State& state) {
    Iconv cd("UTF-32LE", "UTF-8");
    std::vector<char> out(4 * kMegabyte + 16);
    for (auto _ : state)
        benchmark::DoNotOptimize(cd.convert(texts().mixed, &out));
    state.SetBytesProcessed(state.iterations() * static_cast<long>(texts().mixed.size()));
}
BENCHMARK(BM_IconvUTF8ToUTF32);

} // namespace

BENCHMARK_MAIN();
