#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz.h"

// Stands in for the fuzzing engine where there is none: gives the target every file of the folders
// and files that are named.
int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    std::vector<fs::path> files;
    for (int i = 1; i < argc; ++i) {
        if (fs::is_directory(argv[i]))
            std::copy(fs::directory_iterator(argv[i]), fs::directory_iterator(),
                      std::back_inserter(files));
        else
            files.emplace_back(argv[i]);
    }
    std::sort(files.begin(), files.end());
    for (const fs::path& file : files) {
        std::fprintf(stderr, "%s\n", file.c_str());
        std::ifstream stream(file, std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(stream), {}};
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }
    return files.empty() ? 1 : 0;
}
