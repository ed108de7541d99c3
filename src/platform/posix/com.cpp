#include "platform/com.h"

#include <cstdlib>
#include <limits>

void* CoTaskMemAlloc(std::size_t cb) { return std::malloc(cb != 0 ? cb : 1); }

void CoTaskMemFree(void* pv) { std::free(pv); }

namespace {

// The text keeps the alignment of its block; its length in bytes lies directly before it.
constexpr std::size_t kBstrPrefix = 8;
constexpr std::size_t kBstrLengthAt = 4;
constexpr UINT kMaxBstrCharacters = std::numeric_limits<std::int32_t>::max() / 2 - kBstrPrefix;

}  // namespace

BSTR SysAllocString(const OLECHAR* psz)
{
    if (!psz)
        return nullptr;
    const std::size_t length = std::char_traits<OLECHAR>::length(psz);
    return length <= kMaxBstrCharacters ? SysAllocStringLen(psz, static_cast<UINT>(length)) : nullptr;
}

BSTR SysAllocStringLen(const OLECHAR* strIn, UINT ui)
{
    if (ui > kMaxBstrCharacters)
        return nullptr;
    const std::uint32_t bytes = ui * static_cast<UINT>(sizeof(OLECHAR));
    char* block = static_cast<char*>(std::calloc(1, kBstrPrefix + bytes + sizeof(OLECHAR)));
    if (!block)
        return nullptr;
    std::memcpy(block + kBstrLengthAt, &bytes, sizeof(bytes));
    if (strIn && bytes != 0)
        std::memcpy(block + kBstrPrefix, strIn, bytes);
    return reinterpret_cast<BSTR>(block + kBstrPrefix);
}

void SysFreeString(BSTR bstrString)
{
    if (bstrString)
        std::free(reinterpret_cast<char*>(bstrString) - kBstrPrefix);
}

UINT SysStringLen(BSTR pbstr)
{
    if (!pbstr)
        return 0;
    std::uint32_t bytes = 0;
    std::memcpy(&bytes, reinterpret_cast<const char*>(pbstr) - sizeof(bytes), sizeof(bytes));
    return bytes / static_cast<UINT>(sizeof(OLECHAR));
}

int StringFromGUID2(REFGUID rguid, LPOLESTR lpsz, int cchMax)
{
    constexpr int kLength = 39;
    if (!lpsz || cchMax < kLength)
        return 0;
    constexpr const char* kDigits = "0123456789ABCDEF";
    OLECHAR* out = lpsz;
    const auto hex = [&out](std::uint32_t value, int digits) {
        for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4)
            *out++ = static_cast<OLECHAR>(kDigits[value >> shift & 0xF]);
    };
    *out++ = u'{';
    hex(rguid.Data1, 8);
    *out++ = u'-';
    hex(rguid.Data2, 4);
    *out++ = u'-';
    hex(rguid.Data3, 4);
    *out++ = u'-';
    for (int i = 0; i < 8; ++i) {
        if (i == 2)
            *out++ = u'-';
        hex(rguid.Data4[i], 2);
    }
    *out++ = u'}';
    *out = 0;
    return kLength;
}
