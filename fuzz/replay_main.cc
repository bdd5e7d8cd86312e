// SPDX-License-Identifier: Apache-2.0
//
// Runs a fuzzer's entry point once on each given file, and on each file below
// each given directory, in order of their names. Finding no input is a failure.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> inputs(int argc, char **argv) {
    std::vector<fs::path> files;
    for (int i = 1; i < argc; ++i) {
        if (!fs::is_directory(argv[i])) {
            files.emplace_back(argv[i]);
            continue;
        }
        for (const fs::directory_entry &entry : fs::recursive_directory_iterator(argv[i])) {
            if (entry.is_regular_file()) {
                files.push_back(entry.path());
            }
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

bool replay(const fs::path &file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "cannot read %s\n", file.c_str());
        return false;
    }
    const std::string bytes{std::istreambuf_iterator<char>(in), {}};
    // The name is printed first, so that a crash shows which input caused it. The vector
    // has the exact size, so that a sanitizer sees a read past the end.
    std::printf("%s (%zu bytes)\n", file.c_str(), bytes.size());
    std::fflush(stdout);
    const std::vector<uint8_t> input(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(input.data(), input.size());
    return true;
}

}  // namespace

int main(int argc, char **argv) {
    const std::vector<fs::path> files = inputs(argc, argv);
    if (files.empty()) {
        std::fprintf(stderr, "no inputs: name files, or directories with files\n");
        return 2;
    }
    return std::all_of(files.begin(), files.end(), replay) ? 0 : 1;
}
