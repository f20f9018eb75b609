// replay.cpp - runs a fuzz target once over every file of the directories given: the corpus, with
// what the fuzzers once found in it, is a regression test wherever there is no libFuzzer.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz.hpp"

int main(int argc, char** argv) {
    int runs = 0;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::directory_iterator found(argv[i]);
        std::vector<std::filesystem::path> files(begin(found), end(found));
        std::sort(files.begin(), files.end());
        for (const auto& path : files) {
            std::printf("%s\n", path.c_str());  // the last one named is the culprit
            std::fflush(stdout);
            std::ifstream file(path, std::ios::binary);
            const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                   bytes.size());
            ++runs;
        }
    }
    std::printf("%d inputs\n", runs);
    return runs > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
