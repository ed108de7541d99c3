// The MD5 message digest (RFC 1321), as a fingerprint of payloads.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>

namespace vex {

using GMd5Digest = std::array<std::uint8_t, 16>;

class GMd5 {
public:
    void Update(std::span<const std::uint8_t> bytes);
    // The digest of everything so far; the object is used up.
    GMd5Digest Finish();

    static GMd5Digest Of(std::span<const std::uint8_t> bytes);

private:
    static constexpr std::size_t kBlockBytes = 64;

    void Transform(const std::uint8_t* blocks, std::size_t count);

    std::array<std::uint32_t, 4> state{0x67452301u, 0xEFCDAB89u, 0x98BADCFEu, 0x10325476u};
    std::uint64_t length = 0;  // bytes so far
    std::array<std::uint8_t, kBlockBytes> pending{};
};

// 32 lower-case hexadecimal digits.
std::string HexText(const GMd5Digest& digest);

}  // namespace vex
