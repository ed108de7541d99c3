// Runs a fuzz target over kept inputs without libFuzzer, so that every finding stays a test under any compiler.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

std::vector<std::filesystem::path> FilesBelow(const char* name)
{
    std::vector<std::filesystem::path> files;
    if (std::filesystem::is_directory(name)) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(name)) {
            if (entry.is_regular_file())
                files.push_back(entry.path());
        }
    } else if (std::filesystem::exists(name)) {
        files.emplace_back(name);
    }
    std::ranges::sort(files);
    return files;
}

}  // namespace

int main(int argc, char** argv)
{
    size_t count = 0;
    LLVMFuzzerTestOneInput(nullptr, 0);
    for (int i = 1; i < argc; ++i) {
        for (const auto& path : FilesBelow(argv[i])) {
            std::ifstream in(path, std::ios::binary);
            const std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
            std::fprintf(stderr, "%s\n", path.filename().string().c_str());
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
            ++count;
        }
    }
    std::printf("%zu inputs replayed\n", count);
    return 0;
}
