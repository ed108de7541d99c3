#include "host/md5.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace vex {

namespace {

std::uint32_t LoadU32LE(const std::uint8_t* bytes)
{
    if constexpr (std::endian::native == std::endian::little) {
        std::uint32_t value;
        std::memcpy(&value, bytes, sizeof value);
        return value;
    } else {
        return bytes[0] | static_cast<std::uint32_t>(bytes[1]) << 8 | static_cast<std::uint32_t>(bytes[2]) << 16 |
               static_cast<std::uint32_t>(bytes[3]) << 24;
    }
}

// The four auxiliary functions of RFC 1321 3.4, in the forms with the shortest dependency chains.
struct GRoundF {
    static std::uint32_t Mix(std::uint32_t x, std::uint32_t y, std::uint32_t z) { return z ^ (x & (y ^ z)); }
};
struct GRoundG {
    static std::uint32_t Mix(std::uint32_t x, std::uint32_t y, std::uint32_t z) { return (x & z) + (y & ~z); }
};
struct GRoundH {
    static std::uint32_t Mix(std::uint32_t x, std::uint32_t y, std::uint32_t z) { return x ^ y ^ z; }
};
struct GRoundI {
    static std::uint32_t Mix(std::uint32_t x, std::uint32_t y, std::uint32_t z) { return y ^ (x | ~z); }
};

template <class Round, int shift>
void Step(std::uint32_t& a, std::uint32_t b, std::uint32_t c, std::uint32_t d, std::uint32_t word,
          std::uint32_t constant)
{
    a = b + std::rotl(a + Round::Mix(b, c, d) + word + constant, shift);
}

template <class Round, int s1, int s2, int s3, int s4>
void Four(std::array<std::uint32_t, 4>& s, const std::uint32_t (&x)[16], int first, int stride,
          const std::uint32_t (&t)[4])
{
    auto& [a, b, c, d] = s;
    Step<Round, s1>(a, b, c, d, x[first & 15], t[0]);
    Step<Round, s2>(d, a, b, c, x[(first + stride) & 15], t[1]);
    Step<Round, s3>(c, d, a, b, x[(first + 2 * stride) & 15], t[2]);
    Step<Round, s4>(b, c, d, a, x[(first + 3 * stride) & 15], t[3]);
}

}  // namespace

void GMd5::Transform(const std::uint8_t* blocks, std::size_t count)
{
    for (; count > 0; --count, blocks += kBlockBytes) {
        std::uint32_t x[16];
        for (std::size_t i = 0; i < 16; ++i)
            x[i] = LoadU32LE(blocks + 4 * i);
        std::array<std::uint32_t, 4> s = state;

        Four<GRoundF, 7, 12, 17, 22>(s, x, 0, 1, {0xD76AA478, 0xE8C7B756, 0x242070DB, 0xC1BDCEEE});
        Four<GRoundF, 7, 12, 17, 22>(s, x, 4, 1, {0xF57C0FAF, 0x4787C62A, 0xA8304613, 0xFD469501});
        Four<GRoundF, 7, 12, 17, 22>(s, x, 8, 1, {0x698098D8, 0x8B44F7AF, 0xFFFF5BB1, 0x895CD7BE});
        Four<GRoundF, 7, 12, 17, 22>(s, x, 12, 1, {0x6B901122, 0xFD987193, 0xA679438E, 0x49B40821});

        Four<GRoundG, 5, 9, 14, 20>(s, x, 1, 5, {0xF61E2562, 0xC040B340, 0x265E5A51, 0xE9B6C7AA});
        Four<GRoundG, 5, 9, 14, 20>(s, x, 5, 5, {0xD62F105D, 0x02441453, 0xD8A1E681, 0xE7D3FBC8});
        Four<GRoundG, 5, 9, 14, 20>(s, x, 9, 5, {0x21E1CDE6, 0xC33707D6, 0xF4D50D87, 0x455A14ED});
        Four<GRoundG, 5, 9, 14, 20>(s, x, 13, 5, {0xA9E3E905, 0xFCEFA3F8, 0x676F02D9, 0x8D2A4C8A});

        Four<GRoundH, 4, 11, 16, 23>(s, x, 5, 3, {0xFFFA3942, 0x8771F681, 0x6D9D6122, 0xFDE5380C});
        Four<GRoundH, 4, 11, 16, 23>(s, x, 1, 3, {0xA4BEEA44, 0x4BDECFA9, 0xF6BB4B60, 0xBEBFBC70});
        Four<GRoundH, 4, 11, 16, 23>(s, x, 13, 3, {0x289B7EC6, 0xEAA127FA, 0xD4EF3085, 0x04881D05});
        Four<GRoundH, 4, 11, 16, 23>(s, x, 9, 3, {0xD9D4D039, 0xE6DB99E5, 0x1FA27CF8, 0xC4AC5665});

        Four<GRoundI, 6, 10, 15, 21>(s, x, 0, 7, {0xF4292244, 0x432AFF97, 0xAB9423A7, 0xFC93A039});
        Four<GRoundI, 6, 10, 15, 21>(s, x, 12, 7, {0x655B59C3, 0x8F0CCC92, 0xFFEFF47D, 0x85845DD1});
        Four<GRoundI, 6, 10, 15, 21>(s, x, 8, 7, {0x6FA87E4F, 0xFE2CE6E0, 0xA3014314, 0x4E0811A1});
        Four<GRoundI, 6, 10, 15, 21>(s, x, 4, 7, {0xF7537E82, 0xBD3AF235, 0x2AD7D2BB, 0xEB86D391});

        for (std::size_t i = 0; i < 4; ++i)
            state[i] += s[i];
    }
}

void GMd5::Update(std::span<const std::uint8_t> bytes)
{
    const std::size_t held = static_cast<std::size_t>(length % kBlockBytes);
    length += bytes.size();
    if (held > 0) {
        const std::size_t take = std::min(kBlockBytes - held, bytes.size());
        std::copy_n(bytes.begin(), take, pending.begin() + static_cast<std::ptrdiff_t>(held));
        bytes = bytes.subspan(take);
        if (held + take < kBlockBytes)
            return;
        Transform(pending.data(), 1);
    }
    const std::size_t whole = bytes.size() / kBlockBytes;
    Transform(bytes.data(), whole);
    bytes = bytes.subspan(whole * kBlockBytes);
    std::copy(bytes.begin(), bytes.end(), pending.begin());
}

GMd5Digest GMd5::Finish()
{
    const std::uint64_t bits = length * 8;
    static constexpr std::array<std::uint8_t, kBlockBytes> kPadding{0x80};
    const std::size_t held = static_cast<std::size_t>(length % kBlockBytes);
    Update(std::span(kPadding).first(held < 56 ? 56 - held : 120 - held));

    std::array<std::uint8_t, 8> tail;
    for (std::size_t i = 0; i < tail.size(); ++i)
        tail[i] = static_cast<std::uint8_t>(bits >> (8 * i));
    Update(tail);

    GMd5Digest digest;
    for (std::size_t i = 0; i < digest.size(); ++i)
        digest[i] = static_cast<std::uint8_t>(state[i / 4] >> (8 * (i % 4)));
    return digest;
}

GMd5Digest GMd5::Of(std::span<const std::uint8_t> bytes)
{
    GMd5 md5;
    md5.Update(bytes);
    return md5.Finish();
}

std::string HexText(const GMd5Digest& digest)
{
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * digest.size());
    for (const std::uint8_t byte : digest) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

}  // namespace vex
