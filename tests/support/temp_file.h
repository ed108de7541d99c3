// A file of its own for one test, gone when the test is.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <span>
#include <stdexcept>
#include <string>

namespace vex::test {

// A directory nobody else has, removed with all it holds.
class GTempDirectory {
public:
    GTempDirectory()
    {
        static std::atomic<unsigned> number{0};
        // Tests run in several processes at once: whoever creates the directory owns the name.
        do {
            const auto ticks = std::chrono::steady_clock::now().time_since_epoch().count();
            path = std::filesystem::temp_directory_path() /
                   ("vex-test-" + std::to_string(ticks) + "-" + std::to_string(number++));
        } while (!std::filesystem::create_directory(path));
    }
    ~GTempDirectory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    GTempDirectory(const GTempDirectory&) = delete;
    GTempDirectory& operator=(const GTempDirectory&) = delete;

    const std::filesystem::path& Path() const { return path; }

private:
    std::filesystem::path path;
};

class GTempFile {
public:
    explicit GTempFile(std::span<const std::uint8_t> bytes, const std::string& name = "file.bin")
        : path((directory.Path() / name).string())
    {
        Write(bytes, std::ios::trunc);
    }

    const char* Path() const { return path.c_str(); }
    void Append(std::span<const std::uint8_t> bytes) const { Write(bytes, std::ios::app); }
    // Longer or shorter than it is; what is added reads as zeros and takes no room on the disk.
    void Resize(std::uint64_t size) const { std::filesystem::resize_file(path, size); }

private:
    void Write(std::span<const std::uint8_t> bytes, std::ios::openmode mode) const
    {
        std::ofstream out(path, std::ios::binary | mode);
        out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        out.flush();
        if (!out)
            throw std::runtime_error("cannot write " + path);
    }

    GTempDirectory directory;
    std::string path;
};

}  // namespace vex::test
