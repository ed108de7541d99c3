// Typed values: each class reads one kind of EBML value (RFC 8794 clauses 4, 5 and 7).
#pragma once

#include <bit>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/types.h"

namespace vex {

class GMkvElement;

using GMkvBytes = std::vector<std::uint8_t>;

struct GMkvCodedNumber {
    std::uint64_t value;
    unsigned length;  // bytes, 1 to 8
};

// `next` gives one byte after the other, and false at their end. Nothing then, nor behind a first byte of 0.
template <class Next>
std::optional<GMkvCodedNumber> ReadMkvCodedNumber(Next&& next)
{
    std::uint8_t byte = 0;
    if (!next(byte) || byte == 0)
        return std::nullopt;
    const auto length = static_cast<unsigned>(std::countl_zero(byte)) + 1;
    std::uint64_t value = byte & (0xFFu >> length);
    for (unsigned i = 1; i < length; ++i) {
        if (!next(byte))
            return std::nullopt;
        value = value << 8 | byte;
    }
    return GMkvCodedNumber{value, length};
}

// A value and whether it was read. Read gives 0, or a failure that leaves both as they were; it reads at the current
// position of the element's reader.
template <class T, class Derived>
struct GSimpleVar {
    T value{};
    std::uint8_t valid = 0;

    GSimpleVar() = default;
    // A default that counts as read.
    explicit GSimpleVar(T readDefault) : value(readDefault), valid(1) {}

    virtual HRESULT Read(const GMkvElement& element) = 0;

protected:
    GSimpleVar(const GSimpleVar&) = default;
    GSimpleVar& operator=(const GSimpleVar&) = default;
    ~GSimpleVar() = default;  // never deleted through the base
};

struct CByte final : GSimpleVar<std::uint8_t, CByte> {
    using GSimpleVar::GSimpleVar;
    HRESULT Read(const GMkvElement& element) override;
};

// Two bytes, signed.
struct CShort final : GSimpleVar<std::int16_t, CShort> {
    using GSimpleVar::GSimpleVar;
    HRESULT Read(const GMkvElement& element) override;
};

// An element ID of one to four bytes, its marker bits kept.
struct CID final : GSimpleVar<std::uint32_t, CID> {
    using GSimpleVar::GSimpleVar;
    HRESULT Read(const GMkvElement& element) override;
};

// A coded size of one to eight bytes. "Unknown" becomes what lies between the size field and the end of the file.
struct CLength final : GSimpleVar<std::uint64_t, CLength> {
    using GSimpleVar::GSimpleVar;
    HRESULT Read(const GMkvElement& element) override;

    bool unknown = false;  // the file did not say; `value` is the corrected size
};

// The same code, read as a difference: the coded number less 2^(7 * bytes - 1) - 1.
struct CSignedLength final : GSimpleVar<std::int64_t, CSignedLength> {
    using GSimpleVar::GSimpleVar;
    HRESULT Read(const GMkvElement& element) override;
};

// The element's bytes as an unsigned number; none is 0, of more than eight the last eight count.
struct CUInt final : GSimpleVar<std::uint64_t, CUInt> {
    using GSimpleVar::GSimpleVar;
    HRESULT Read(const GMkvElement& element) override;
};

// The element's bytes, sign-extended; none is 0, more than eight are refused.
struct CInt final : GSimpleVar<std::int64_t, CInt> {
    using GSimpleVar::GSimpleVar;
    HRESULT Read(const GMkvElement& element) override;
};

// Four or eight bytes of IEEE 754, any pattern; every other size is refused.
struct CFloat final : GSimpleVar<double, CFloat> {
    using GSimpleVar::GSimpleVar;
    HRESULT Read(const GMkvElement& element) override;
};

// Longest text kept, in bytes; more is cut. It is meant for people.
inline constexpr std::uint32_t kMaxMkvTextSize = 1u << 20;

// The data of the element, from its start, as far as the element's parents and the file hold them: 0, 1 when they were
// cut short there, or E_FAIL with the target untouched. UTF-8 text ends at its first NUL, and malformed sequences
// become U+FFFD; 8-bit text loses trailing NULs; bytes beyond kMaxCodecDataSize are refused with E_FAIL.
HRESULT ReadUtf8Text(const GMkvElement& element, WString& text);
HRESULT ReadAsciiText(const GMkvElement& element, std::string& text);
HRESULT ReadBinary(const GMkvElement& element, GMkvBytes& bytes);

}  // namespace vex
