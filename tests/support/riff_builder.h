// Writes RIFF files for tests: sizes are filled in when a scope ends, and any byte can be broken afterwards.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace vex::test {

class GRiffBuilder {
public:
    // An open chunk or list. Its end writes the size and the pad byte.
    class [[nodiscard]] GScope {
    public:
        GScope(GRiffBuilder& riff, std::size_t headerPosition) : builder(riff), header(headerPosition) {}
        ~GScope()
        {
            builder.PatchU32LE(header + 4, static_cast<std::uint32_t>(builder.Position() - header - 8));
            if (builder.Position() % 2 != 0)
                builder.U8(0);
        }
        GScope(const GScope&) = delete;
        GScope& operator=(const GScope&) = delete;
        std::size_t Position() const { return header; }  // of the code; the size stands 4 bytes behind

    private:
        GRiffBuilder& builder;
        std::size_t header;
    };

    GScope Chunk(std::string_view code)
    {
        const std::size_t position = Position();
        Text(code);
        U32LE(0);
        return {*this, position};
    }
    GScope List(std::string_view type) { return Typed("LIST", type); }
    GScope Riff(std::string_view type) { return Typed("RIFF", type); }

    void U8(std::uint8_t value) { bytes.push_back(value); }
    void U16LE(std::uint16_t value) { Number(value, 2); }
    void U32LE(std::uint32_t value) { Number(value, 4); }
    void U64LE(std::uint64_t value) { Number(value, 8); }
    void Text(std::string_view text) { bytes.insert(bytes.end(), text.begin(), text.end()); }
    void Zeros(std::size_t count) { bytes.resize(bytes.size() + count); }
    void Append(std::span<const std::uint8_t> more) { bytes.insert(bytes.end(), more.begin(), more.end()); }

    std::size_t Position() const { return bytes.size(); }
    void PatchU32LE(std::size_t position, std::uint32_t value) { Patch(position, value, 4); }
    void PatchU64LE(std::size_t position, std::uint64_t value) { Patch(position, value, 8); }
    const std::vector<std::uint8_t>& Bytes() const { return bytes; }

private:
    GScope Typed(std::string_view code, std::string_view type)
    {
        const std::size_t position = Position();
        Text(code);
        U32LE(0);
        Text(type);
        return {*this, position};
    }
    void Number(std::uint64_t value, int count)
    {
        for (int i = 0; i < count; ++i)
            U8(static_cast<std::uint8_t>(value >> 8 * i));
    }
    void Patch(std::size_t position, std::uint64_t value, std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i)
            bytes.at(position + i) = static_cast<std::uint8_t>(value >> 8 * i);
    }

    std::vector<std::uint8_t> bytes;
};

}  // namespace vex::test
