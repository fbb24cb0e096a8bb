// The main of a fuzz target outside the fuzz tree: it runs the target once on each file named on
// the command line (a directory stands for the files in it, in name order), so the gcc trees
// replay the committed corpora and crash inputs under their own sanitizers, and a crash input
// can be run under a debugger without libFuzzer.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) {
        std::error_code error;
        if (fs::is_directory(argv[i], error)) {
            std::vector<std::string> inside;
            for (const auto& entry : fs::directory_iterator(argv[i])) {
                if (entry.is_regular_file()) inside.push_back(entry.path().string());
            }
            std::sort(inside.begin(), inside.end());
            files.insert(files.end(), inside.begin(), inside.end());
        } else if (fs::is_regular_file(argv[i], error)) {
            files.emplace_back(argv[i]);
        } else {
            std::fprintf(stderr, "%s: no such file or directory: %s\n", argv[0], argv[i]);
            return 2;
        }
    }
    // The paths are read before the target may change the working directory.
    std::vector<std::vector<char>> inputs;
    for (const std::string& file : files) {
        std::ifstream in(file, std::ios::binary);
        inputs.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    LLVMFuzzerInitialize(&argc, &argv);
    for (size_t i = 0; i < inputs.size(); ++i) {
        std::fprintf(stderr, "Running: %s\n", files[i].c_str());
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(inputs[i].data()),
                               inputs[i].size());
    }
    std::fprintf(stderr, "replayed %zu inputs\n", inputs.size());
    return 0;
}
