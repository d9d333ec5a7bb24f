// Runs a fuzz target over files and whole directories of them; stops like the target where a check fails.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> files_of(const fs::path& path)
{
    if (!fs::is_directory(path)) {
        return {path};
    }
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(path)) {
        if (entry.is_regular_file()) {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

bool replay(const fs::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    const std::vector<char> content{std::istreambuf_iterator<char>(stream), {}};
    if (!stream) {
        std::fprintf(stderr, "cannot read %s\n", file.string().c_str());
        return false;
    }
    // A block of just this size, so that a target which reads past its input is seen.
    const std::vector<uint8_t> input(content.begin(), content.end());
    std::fprintf(stderr, "%s\n", file.string().c_str());
    LLVMFuzzerTestOneInput(input.data(), input.size());
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        for (const fs::path& file : files_of(argv[i])) {
            if (!replay(file)) {
                return 1;
            }
            ++count;
        }
    }
    std::printf("%zu inputs\n", count);
    return count != 0 ? 0 : 1;
}
