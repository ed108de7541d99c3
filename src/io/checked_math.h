// Arithmetic on numbers from a file, where every sum and product may be a lie.
#pragma once

#include <concepts>
#include <cstdint>
#include <limits>
#include <optional>
#include <type_traits>

namespace vex {

// Both operands have one type, so that nothing is converted on the way in. Nothing when the result does not fit it.
template <std::integral T>
constexpr std::optional<T> CheckedAdd(T a, std::type_identity_t<T> b)
{
    T sum{};
    if (__builtin_add_overflow(a, b, &sum))
        return std::nullopt;
    return sum;
}

template <std::integral T>
constexpr std::optional<T> CheckedMul(T a, std::type_identity_t<T> b)
{
    T product{};
    if (__builtin_mul_overflow(a, b, &product))
        return std::nullopt;
    return product;
}

namespace detail {

struct GProduct128 {
    std::uint64_t high;
    std::uint64_t low;
};

constexpr GProduct128 Multiply128(std::uint64_t a, std::uint64_t b)
{
    const std::uint64_t aHigh = a >> 32;
    const std::uint64_t aLow = a & 0xFFFFFFFFu;
    const std::uint64_t bHigh = b >> 32;
    const std::uint64_t bLow = b & 0xFFFFFFFFu;
    const std::uint64_t lowLow = aLow * bLow;
    const std::uint64_t middle = aHigh * bLow + (lowLow >> 32);           // at most 2^64 - 2^32
    const std::uint64_t middle2 = aLow * bHigh + (middle & 0xFFFFFFFFu);  // the same
    return {aHigh * bHigh + (middle >> 32) + (middle2 >> 32), middle2 << 32 | (lowLow & 0xFFFFFFFFu)};
}

// Requires product.high < divisor, so that the quotient fits. Restoring division, one bit of the quotient at a time.
constexpr std::uint64_t Divide128(GProduct128 product, std::uint64_t divisor)
{
    std::uint64_t remainder = product.high;
    std::uint64_t quotient = product.low;
    for (int bit = 0; bit < 64; ++bit) {
        const bool carry = remainder >> 63 != 0;
        remainder = remainder << 1 | quotient >> 63;
        quotient <<= 1;
        if (carry || remainder >= divisor) {
            remainder -= divisor;
            quotient |= 1;
        }
    }
    return quotient;
}

constexpr std::uint64_t Magnitude(std::int64_t value)
{
    const auto bits = static_cast<std::uint64_t>(value);
    return value < 0 ? 0 - bits : bits;
}

}  // namespace detail

// value * mul / div with all 128 bits of the product, rounded towards zero. Nothing when div is 0 or the quotient
// does not fit 64 bits.
constexpr std::optional<std::uint64_t> MulDivU64(std::uint64_t value, std::uint64_t mul, std::uint64_t div)
{
    const detail::GProduct128 product = detail::Multiply128(value, mul);
    if (product.high >= div)  // also when div is 0
        return std::nullopt;
    return product.high == 0 ? product.low / div : detail::Divide128(product, div);
}

// The same for signed numbers, rounded towards zero as the language's own division is.
constexpr std::optional<std::int64_t> MulDiv64(std::int64_t value, std::int64_t mul, std::int64_t div)
{
    const std::optional<std::uint64_t> quotient =
        MulDivU64(detail::Magnitude(value), detail::Magnitude(mul), detail::Magnitude(div));
    const bool negative = ((value < 0) != (mul < 0)) != (div < 0);
    constexpr auto kMax = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    if (!quotient || *quotient > kMax + (negative ? 1 : 0))
        return std::nullopt;
    return static_cast<std::int64_t>(negative ? 0 - *quotient : *quotient);
}

}  // namespace vex
