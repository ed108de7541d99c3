// A value, or an error of one of a few kinds with its place in the file. Callers branch on the kind, people read
// the text.
#pragma once

#include <cassert>
#include <concepts>
#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>

namespace vex {

enum class GErrorKind : std::uint8_t {
    Aborted,       // another thread asked for the work to stop; says nothing about the file
    EndOfStream,   // nothing is left where something could still have begun
    NeedMoreData,  // the bytes so far are sound but do not suffice
    Malformed,     // the bytes contradict their format
    Unsupported,   // sound, but of a kind not read here
    Limit,         // sound perhaps, but beyond a limit of limits.h
    Io,            // the byte source failed
};

struct GError {
    GErrorKind kind = GErrorKind::Malformed;
    const char* what = "";      // static storage, English, no trailing stop
    std::uint64_t filePos = 0;  // absolute position in bytes of what is wrong
    std::uint32_t osError = 0;  // the operating system's number for the cause of an Io error, 0 when it gave none
    std::string detail{};       // follows `what` behind a blank, UTF-8; empty for most
};

// Appends a four-character code to a list in quotes ("'rtp ', 'tmcd'"), with '?' for what cannot be printed. A code
// that is listed counts once; a list of 48 characters takes no more.
void AddCode(std::string& list, std::uint32_t fourCC);

// For people: "what detail: what the system says (at byte N)", in UTF-8.
std::string Describe(const GError& error);

// Holds a T or a GError. T may be move-only, and need not be default-constructible.
template <class T>
class [[nodiscard]] GResult {
    static_assert(!std::is_same_v<std::remove_cv_t<T>, GError>, "an error is not a value");
    static_assert(!std::is_reference_v<T>, "hold a pointer instead");

public:
    using ValueType = T;

    // Success that carries nothing: `return {};` in a function that returns GStatus.
    GResult() requires std::same_as<T, std::monostate> {}
    GResult(const GError& error) : held(std::in_place_index<1>, error) {}
    // Anything that converts to T by itself, such as a unique_ptr to a derived class.
    template <class U = T>
    requires(std::is_convertible_v<U&&, T> && !std::same_as<std::remove_cvref_t<U>, GResult> &&
             !std::same_as<std::remove_cvref_t<U>, GError>) GResult(U&& value)
        : held(std::in_place_index<0>, std::forward<U>(value))
    {
    }

    bool Ok() const { return held.index() == 0; }

    // Requires Ok().
    T& Value() & { return *Checked(std::get_if<0>(&held)); }
    const T& Value() const& { return *Checked(std::get_if<0>(&held)); }
    T&& Value() && { return std::move(*Checked(std::get_if<0>(&held))); }

    // Requires !Ok().
    const GError& Error() const { return *Checked(std::get_if<1>(&held)); }

private:
    template <class P>
    static P Checked(P pointer)
    {
        assert(pointer != nullptr && "asked for what the result does not hold");
        return pointer;
    }

    std::variant<T, GError> held;
};

using GStatus = GResult<std::monostate>;

}  // namespace vex

#define G_JOIN_(a, b) a##b
#define G_JOIN(a, b) G_JOIN_(a, b)

#define G_TRY_(tmp, decl, ...)                                                                                         \
    auto tmp = (__VA_ARGS__);                                                                                          \
    if (!tmp.Ok()) [[unlikely]]                                                                                        \
        return tmp.Error();                                                                                            \
    decl = std::move(tmp).Value()

// G_TRY(auto x, Parse(reader)); declares x, or returns the error from the enclosing function. Not a single statement:
// put it in braces. The counter keeps a G_TRY inside a lambda apart from the one whose expression the lambda is in.
#define G_TRY(decl, ...) G_TRY_(G_JOIN(gTry, __COUNTER__), decl, __VA_ARGS__)

#define G_TRY_STATUS_(tmp, ...)                                                                                        \
    do {                                                                                                               \
        if (const auto tmp = (__VA_ARGS__); !tmp.Ok()) [[unlikely]]                                                    \
            return tmp.Error();                                                                                        \
    } while (false)

// G_TRY_STATUS(Check(reader)); the same where success carries nothing.
#define G_TRY_STATUS(...) G_TRY_STATUS_(G_JOIN(gTry, __COUNTER__), __VA_ARGS__)
