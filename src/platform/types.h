// Basic types of the media pipeline: integers of fixed width, HRESULT, GUID, 16-bit wide characters.
// On Windows these are the SDK's own; elsewhere the same names with the same sizes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#ifdef _WIN32

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#define VEX_W(text) L##text

#else

#define VEX_W(text) u##text
#define STDMETHODCALLTYPE
#define WINAPI
#define CALLBACK
#define STDMETHODIMP HRESULT STDMETHODCALLTYPE
#define STDMETHODIMP_(type) type STDMETHODCALLTYPE
#define STDAPI extern "C" HRESULT STDMETHODCALLTYPE

using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using UINT = std::uint32_t;
using INT = std::int32_t;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using LONGLONG = std::int64_t;
using ULONGLONG = std::uint64_t;
using DWORDLONG = std::uint64_t;
using DWORD_PTR = std::uintptr_t;
using LONG_PTR = std::intptr_t;
using BOOL = std::int32_t;
using HRESULT = std::int32_t;
using CHAR = char;
using WCHAR = char16_t;
using LPWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;
using LPOLESTR = WCHAR*;
using LPCOLESTR = const WCHAR*;
using OLECHAR = WCHAR;
using LPVOID = void*;
using BSTR = WCHAR*;  // length in bytes in the four bytes before it; see com.h

inline constexpr BOOL TRUE = 1;
inline constexpr BOOL FALSE = 0;
inline constexpr DWORD INFINITE = 0xFFFFFFFFu;
inline constexpr std::size_t MAX_PATH = 260;

struct RECT {
    LONG left;
    LONG top;
    LONG right;
    LONG bottom;
};

struct SIZE {
    LONG cx;
    LONG cy;
};

struct GUID {
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];

    friend constexpr bool operator==(const GUID& a, const GUID& b)
    {
        if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3)
            return false;
        for (int i = 0; i < 8; ++i)
            if (a.Data4[i] != b.Data4[i])
                return false;
        return true;
    }
};
static_assert(sizeof(GUID) == 16);
using IID = GUID;
using CLSID = GUID;
using REFGUID = const GUID&;
using REFIID = const GUID&;
using REFCLSID = const GUID&;

inline constexpr GUID GUID_NULL{};
inline constexpr CLSID CLSID_NULL{};

constexpr bool IsEqualGUID(REFGUID a, REFGUID b) { return a == b; }

constexpr bool SUCCEEDED(HRESULT hr) { return hr >= 0; }
constexpr bool FAILED(HRESULT hr) { return hr < 0; }

namespace vex::detail {
constexpr HRESULT MakeResult(std::uint32_t bits) { return static_cast<HRESULT>(bits); }
}  // namespace vex::detail

inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;
inline constexpr HRESULT NOERROR = 0;
inline constexpr HRESULT E_UNEXPECTED = vex::detail::MakeResult(0x8000FFFFu);
inline constexpr HRESULT E_NOTIMPL = vex::detail::MakeResult(0x80004001u);
inline constexpr HRESULT E_NOINTERFACE = vex::detail::MakeResult(0x80004002u);
inline constexpr HRESULT E_POINTER = vex::detail::MakeResult(0x80004003u);
inline constexpr HRESULT E_ABORT = vex::detail::MakeResult(0x80004004u);
inline constexpr HRESULT E_FAIL = vex::detail::MakeResult(0x80004005u);
inline constexpr HRESULT E_OUTOFMEMORY = vex::detail::MakeResult(0x8007000Eu);
inline constexpr HRESULT E_INVALIDARG = vex::detail::MakeResult(0x80070057u);
inline constexpr HRESULT CLASS_E_NOAGGREGATION = vex::detail::MakeResult(0x80040110u);
inline constexpr HRESULT CLASS_E_CLASSNOTAVAILABLE = vex::detail::MakeResult(0x80040111u);

#endif

namespace vex {

// UTF-16 text, as it crosses COM boundaries.
using WString = std::basic_string<WCHAR>;
using WStringView = std::basic_string_view<WCHAR>;
static_assert(sizeof(WCHAR) == 2);

// Facility-Win32 HRESULT of an operating-system error number; 0 stays S_OK.
constexpr HRESULT HResultFromOsError(std::uint32_t error)
{
    return error == 0 ? S_OK : static_cast<HRESULT>((error & 0xFFFFu) | 0x80070000u);
}

}  // namespace vex
