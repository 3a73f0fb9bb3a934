// tools_bench.cpp - the CSV reader and writer of the qv tool, beside the naive way of reading
// a CSV: std::getline per line and a split on the delimiter into strings (which knows no
// quotes at all). Data: the rows of the derive benchmark (x, y, z, i, name, code, d, a) made
// in memory; the same with quoted fields; and, when the build made it, the 1,000,000-row
// benchmark file read from disk (the page cache) through the tool's input file.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "csv.hpp"
#include "files.hpp"

namespace {

using qvtool::CsvReader;

constexpr int ROWS = 200'000;

// Deterministic numbers without <random>'s cost: a 64-bit LCG.
struct Lcg {
    unsigned long long state = 1;
    unsigned next(unsigned bound) {
        state = state * 6364136223846793005ULL + 1442695040888963407ULL;
        return static_cast<unsigned>(state >> 33) % bound;
    }
};

// Rows shaped like the derive benchmark's; with `quoted`, names carry a comma and a doubled
// quote and sit in quotes, as a spreadsheet writes them.
std::string make_rows(bool quoted) {
    static const char *const names[] = {"alice", "bob", "Carol", "dave", "Eve", "Zo\xC3\xAB"};
    Lcg random;
    std::string text = "x,y,z,i,name,code,d,a\n";
    char line[160];
    for (int row = 0; row < ROWS; ++row) {
        const char *name = names[random.next(6)];
        const std::string field =
            quoted ? std::string(1, '"').append(name).append(", \"\"Jr\"\"\"") : name;
        std::snprintf(line, sizeof line, "%.6e,%.6e,%.6e,%u,%s,ABC%04u,20%02u-%02u-%02u,%s\n",
                      random.next(100000) / 1000.0, random.next(100000) / 1000.0,
                      random.next(100000) / 1000.0 - 50, random.next(1000000), field.c_str(),
                      random.next(10000), random.next(25), random.next(12) + 1, random.next(28) + 1,
                      row % 10 == 9 ? "" : "17");
        text += line;
    }
    return text;
}

const std::string &plain_rows() {
    static const std::string text = make_rows(false);
    return text;
}

const std::string &quoted_rows() {
    static const std::string text = make_rows(true);
    return text;
}

// Reads every record; the field count summed keeps the work from being optimised away.
std::size_t read_all(qvtool::ByteSource &source) {
    CsvReader reader(source);
    std::size_t fields = 0;
    while (reader.next() == CsvReader::Status::Row) fields += reader.fields().size();
    return fields;
}

void CsvReader_Memory(benchmark::State &state, const std::string &(*rows)()) {
    const std::string &text = rows();
    for (auto _ : state) {
        qvtool::MemorySource source(text);
        benchmark::DoNotOptimize(read_all(source));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK_CAPTURE(CsvReader_Memory, plain, plain_rows)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(CsvReader_Memory, quoted, quoted_rows)->Unit(benchmark::kMillisecond);

// The peer: std::getline and a split on ',' into a reused vector of strings.
std::size_t getline_split(std::istream &in) {
    std::string line;
    std::vector<std::string> fields;
    std::size_t count = 0;
    while (std::getline(in, line)) {
        fields.clear();
        std::size_t begin = 0, comma;
        while ((comma = line.find(',', begin)) != std::string::npos) {
            fields.emplace_back(line, begin, comma - begin);
            begin = comma + 1;
        }
        fields.emplace_back(line, begin);
        count += fields.size();
    }
    return count;
}

void GetlineSplit_Plain(benchmark::State &state) {
    const std::string &text = plain_rows();
    for (auto _ : state) {
        std::istringstream in(text);
        benchmark::DoNotOptimize(getline_split(in));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(GetlineSplit_Plain)->Unit(benchmark::kMillisecond);

class NullSink : public qvtool::ByteSink {
  public:
    bool write_all(const char *, std::size_t size) override {
        bytes += size;
        return true;
    }
    std::size_t bytes = 0;
};

// Reading and writing back: the work of a derive that passes rows through.
void CsvReadWrite_Plain(benchmark::State &state) {
    const std::string &text = plain_rows();
    for (auto _ : state) {
        qvtool::MemorySource source(text);
        NullSink sink;
        CsvReader reader(source);
        qvtool::CsvWriter writer(sink);
        while (reader.next() == CsvReader::Status::Row) writer.write_row(reader.fields());
        writer.flush();
        benchmark::DoNotOptimize(sink.bytes);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(CsvReadWrite_Plain)->Unit(benchmark::kMillisecond);

#ifdef QV_BENCH_CSV
void CsvReader_File(benchmark::State &state) {
    std::string error;
    std::uint64_t size = 0;
    for (auto _ : state) {
        auto input = qvtool::InputFile::open(QV_BENCH_CSV, error);
        if (!input) {
            state.SkipWithError(error.c_str());
            return;
        }
        size = input->size();
        benchmark::DoNotOptimize(read_all(*input));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
}
BENCHMARK(CsvReader_File)->Unit(benchmark::kMillisecond);

void GetlineSplit_File(benchmark::State &state) {
    for (auto _ : state) {
        std::ifstream in(QV_BENCH_CSV, std::ios::binary);
        benchmark::DoNotOptimize(getline_split(in));
    }
    state.SetBytesProcessed(
        static_cast<int64_t>(state.iterations() * std::filesystem::file_size(QV_BENCH_CSV)));
}
BENCHMARK(GetlineSplit_File)->Unit(benchmark::kMillisecond);
#endif

} // namespace

BENCHMARK_MAIN();
