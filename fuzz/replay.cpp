// SPDX-License-Identifier: MIT
// Runs a fuzz target on each file of a directory, for compilers that have no libFuzzer: replay
// DIRECTORY
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, std::size_t size);

int main(int, char **argv) {
    int files = 0;
    for (const auto &entry : std::filesystem::directory_iterator(argv[1])) {
        std::ifstream file(entry.path());
        const std::string bytes(std::istreambuf_iterator<char>(file), {});
        std::puts(entry.path().c_str());
        (void)LLVMFuzzerTestOneInput(reinterpret_cast<const unsigned char *>(bytes.data()),
                                     bytes.size());
        ++files;
    }
    return files > 0 ? 0 : 1;
}
