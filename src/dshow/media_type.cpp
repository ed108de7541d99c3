#include "dshow/media_type.h"

#include <limits>
#include <new>
#include <utility>

namespace vex {

namespace {

const AM_MEDIA_TYPE kEmptyType{};

// A task-memory copy of `bytes`, null for none of them. Throws std::bad_alloc.
BYTE* CopyBlock(std::span<const BYTE> bytes)
{
    if (bytes.empty())
        return nullptr;
    auto* block = static_cast<BYTE*>(CoTaskMemAlloc(bytes.size()));
    if (!block)
        throw std::bad_alloc();
    std::memcpy(block, bytes.data(), bytes.size());
    return block;
}

// The format block of a record from outside: a length without a pointer counts as none.
std::span<const BYTE> BlockOf(const AM_MEDIA_TYPE& type)
{
    return type.pbFormat ? std::span<const BYTE>(type.pbFormat, type.cbFormat) : std::span<const BYTE>();
}

bool SameBlock(const AM_MEDIA_TYPE& a, const AM_MEDIA_TYPE& b)
{
    const auto left = BlockOf(a);
    const auto right = BlockOf(b);
    return left.size() == right.size() && (left.empty() || std::memcmp(left.data(), right.data(), left.size()) == 0);
}

// `target` is overwritten without a look at what it held; untouched when this throws.
void CopyRecord(AM_MEDIA_TYPE& target, const AM_MEDIA_TYPE& source)
{
    const auto bytes = BlockOf(source);
    BYTE* block = CopyBlock(bytes);
    target = source;
    target.pbFormat = block;
    target.cbFormat = static_cast<ULONG>(bytes.size());
    if (target.pUnk)
        target.pUnk->AddRef();
}

}  // namespace

CMediaType::CMediaType() : AM_MEDIA_TYPE(kEmptyType)
{
    // The platform's defaults.
    lSampleSize = 1;
    bFixedSizeSamples = TRUE;
}

CMediaType::CMediaType(REFGUID major, REFGUID sub) : CMediaType()
{
    majortype = major;
    subtype = sub;
}

CMediaType::CMediaType(const AM_MEDIA_TYPE& other) : AM_MEDIA_TYPE(kEmptyType) { CopyRecord(*this, other); }

CMediaType::CMediaType(const CMediaType& other) : CMediaType(static_cast<const AM_MEDIA_TYPE&>(other)) {}

CMediaType::CMediaType(CMediaType&& other) noexcept : CMediaType()
{
    std::swap(static_cast<AM_MEDIA_TYPE&>(*this), static_cast<AM_MEDIA_TYPE&>(other));
}

CMediaType& CMediaType::operator=(CMediaType other) noexcept
{
    std::swap(static_cast<AM_MEDIA_TYPE&>(*this), static_cast<AM_MEDIA_TYPE&>(other));
    return *this;
}

CMediaType::~CMediaType() { FreeMediaType(*this); }

bool CMediaType::operator==(const CMediaType& other) const { return Matches(other); }

bool CMediaType::Matches(const AM_MEDIA_TYPE& other) const
{
    return majortype == other.majortype && subtype == other.subtype && formattype == other.formattype &&
           SameBlock(*this, other);
}

bool CMediaType::MatchesPartial(const AM_MEDIA_TYPE& pattern) const
{
    const auto fits = [](REFGUID wanted, REFGUID ours) { return wanted == GUID_NULL || wanted == ours; };
    if (!fits(pattern.majortype, majortype) || !fits(pattern.subtype, subtype))
        return false;
    return pattern.formattype == GUID_NULL || (pattern.formattype == formattype && SameBlock(*this, pattern));
}

void CMediaType::SetFormat(REFGUID type, std::span<const BYTE> bytes)
{
    if (bytes.size() > std::numeric_limits<ULONG>::max())
        throw std::bad_alloc();
    const GUID newType = type;  // either may lie in what is freed
    BYTE* block = CopyBlock(bytes);
    CoTaskMemFree(pbFormat);
    pbFormat = block;
    cbFormat = static_cast<ULONG>(bytes.size());
    formattype = newType;
}

std::span<BYTE> CMediaType::AllocFormat(REFGUID type, std::size_t bytes)
{
    if (bytes > std::numeric_limits<ULONG>::max())
        throw std::bad_alloc();
    const GUID newType = type;
    BYTE* block = nullptr;
    if (bytes > 0) {
        block = static_cast<BYTE*>(CoTaskMemAlloc(bytes));
        if (!block)
            throw std::bad_alloc();
        std::memset(block, 0, bytes);
    }
    CoTaskMemFree(pbFormat);
    pbFormat = block;
    cbFormat = static_cast<ULONG>(bytes);
    formattype = newType;
    return Format();
}

void CMediaType::SetSampleSize(ULONG bytes)
{
    bFixedSizeSamples = bytes > 0 ? TRUE : FALSE;
    lSampleSize = bytes;
}

void CMediaType::Clear() { *this = CMediaType(); }

HRESULT CMediaType::CopyTo(AM_MEDIA_TYPE* target) const
{
    if (!target)
        return E_POINTER;
    try {
        CopyRecord(*target, *this);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

AM_MEDIA_TYPE* CreateMediaType(const AM_MEDIA_TYPE& source)
{
    auto* copy = static_cast<AM_MEDIA_TYPE*>(CoTaskMemAlloc(sizeof(AM_MEDIA_TYPE)));
    if (!copy)
        return nullptr;
    try {
        CopyRecord(*copy, source);
    } catch (const std::bad_alloc&) {
        CoTaskMemFree(copy);
        return nullptr;
    }
    return copy;
}

void FreeMediaType(AM_MEDIA_TYPE& type)
{
    CoTaskMemFree(type.pbFormat);
    type.pbFormat = nullptr;
    type.cbFormat = 0;
    if (type.pUnk) {
        IUnknown* const unknown = type.pUnk;
        type.pUnk = nullptr;
        unknown->Release();
    }
}

void DeleteMediaType(AM_MEDIA_TYPE* type)
{
    if (!type)
        return;
    FreeMediaType(*type);
    CoTaskMemFree(type);
}

}  // namespace vex
