// Replays the parser's fuzz corpus (fuzz/corpus/express) through its fuzz target in every
// build, the sanitizer build included. A failed check of the target aborts the program.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include <gtest/gtest.h>

#include "fuzz/express_fuzz.cpp"

namespace {

TEST(ExpressFuzzCorpus, EveryInputPassesTheTargetsChecks) {
    namespace fs = std::filesystem;
    const fs::path corpus = fs::path(__FILE__).parent_path() / "../../fuzz/corpus/express";
    std::vector<fs::path> inputs;
    for (const auto &entry : fs::directory_iterator(corpus)) inputs.push_back(entry.path());
    std::sort(inputs.begin(), inputs.end());
    for (const fs::path &input : inputs) {
        std::ifstream in(input, std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(in), {}};
        SCOPED_TRACE(input.filename().string());
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
    }
    SetErrorSuppression_L(0);
    EXPECT_GE(inputs.size(), 25u);
}

} // namespace
