// Runs the fuzz target over every file named on the command line (or found in the
// directories named there), so that the corpus is replayed by ordinary builds.

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    int files = 0;
    for (int i = 1; i < argc; ++i) {
        std::vector<std::filesystem::path> paths;
        if (std::filesystem::is_directory(argv[i])) {
            for (const auto& e : std::filesystem::directory_iterator(argv[i]))
                if (e.is_regular_file()) paths.push_back(e.path());
        } else {
            paths.emplace_back(argv[i]);
        }
        for (const auto& p : paths) {
            std::ifstream in(p, std::ios::binary);
            const std::vector<char> bytes((std::istreambuf_iterator<char>(in)),
                                          std::istreambuf_iterator<char>());
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
            ++files;
        }
    }
    std::printf("replayed %d inputs\n", files);
    return files > 0 ? 0 : 1;
}
