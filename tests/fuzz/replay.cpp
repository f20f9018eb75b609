// replay.cpp - runs a fuzz target once over every file of a directory: the corpus, with what the
// fuzzers once found in it, is a regression test wherever there is no libFuzzer.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz.hpp"

int main(int, char** argv) {
    bool any = false;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
        std::printf("%s\n", entry.path().c_str());  // the last one named is the culprit
        std::fflush(stdout);
        std::ifstream file(entry.path(), std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
        any = true;
    }
    return any ? EXIT_SUCCESS : EXIT_FAILURE;
}
