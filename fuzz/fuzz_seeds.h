// The first inputs of a fuzz target.
#pragma once

#include <cstdint>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

namespace vex::fuzz {

class GSeedFolder {
public:
    explicit GSeedFolder(std::string path) : folder(std::move(path)) {}

    // `control`: see handler_fuzzing.h.
    void Write(const std::string& name, std::vector<std::uint8_t> file, std::uint8_t control)
    {
        file.push_back(control);
        std::ofstream out(folder + "/" + name, std::ios::binary);
        out.write(reinterpret_cast<const char*>(file.data()), static_cast<std::streamsize>(file.size()));
        sound = static_cast<bool>(out.flush()) && sound;
    }
    bool Sound() const { return sound; }

private:
    const std::string folder;
    bool sound = true;
};

// Defined once for each target: one small file of every kind.
void WriteSeeds(GSeedFolder& seeds);

}  // namespace vex::fuzz
