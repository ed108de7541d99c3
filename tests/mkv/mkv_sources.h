// Matroska bytes in memory, opened at the layers below the read handler.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "formats/mkv/mkv_file.h"
#include "formats/mkv/mkv_reader.h"
#include "support/watched_source.h"

namespace vex::test {

// What a reader needs, and outlives it.
struct GMkvInput {
    std::unique_ptr<GFileBase> source;
    GDamageLog damage;
};

class GMkvTestReader : private GMkvInput, public GMkvReader {
public:
    explicit GMkvTestReader(std::unique_ptr<GFileBase> openSource, std::uint32_t capacity = kDefaultBufferCapacity)
        : GMkvInput{std::move(openSource), {}}, GMkvReader(*GMkvInput::source, GMkvInput::damage, capacity)
    {
    }
    using GMkvReader::Damage;
};

class GMkvTestFile : private GMkvInput, public GMkvFile {
public:
    GStatus Open(std::unique_ptr<GFileBase> openSource)
    {
        Close();
        source = std::move(openSource);
        damage.Clear();
        return GMkvFile::Open(*source, damage);
    }
};

}  // namespace vex::test
