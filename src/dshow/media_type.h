// Owning media type record.
#pragma once

#include <span>

#include "platform/guids.h"
#include "platform/media_records.h"

namespace vex {

// An AM_MEDIA_TYPE that owns its format block (task memory) and its unknown. Passing it where the pipeline wants
// `const AM_MEDIA_TYPE*` needs no cast. Copying may throw std::bad_alloc.
class CMediaType : public AM_MEDIA_TYPE {
public:
    CMediaType();
    CMediaType(REFGUID major, REFGUID sub);
    explicit CMediaType(const AM_MEDIA_TYPE& other);
    CMediaType(const CMediaType& other);
    CMediaType(CMediaType&& other) noexcept;
    CMediaType& operator=(CMediaType other) noexcept;
    ~CMediaType();

    // Major type, subtype, format type and format bytes are the same; sizes and flags do not count.
    bool operator==(const CMediaType& other) const;
    bool Matches(const AM_MEDIA_TYPE& other) const;
    bool IsValid() const { return majortype != GUID_NULL; }

    // True when every GUID of `pattern` that is not GUID_NULL equals ours; with a format type the whole block
    // counts too.
    bool MatchesPartial(const AM_MEDIA_TYPE& pattern) const;

    std::span<BYTE> Format() { return {pbFormat, cbFormat}; }
    std::span<const BYTE> Format() const { return {pbFormat, cbFormat}; }
    void SetFormat(REFGUID type, std::span<const BYTE> bytes);
    // A zeroed format block of `bytes` bytes.
    std::span<BYTE> AllocFormat(REFGUID type, std::size_t bytes);
    // lSampleSize and bFixedSizeSamples; 0 means variable.
    void SetSampleSize(ULONG bytes);
    void Clear();

    // Copies into a record whose old contents are not looked at; S_OK or E_OUTOFMEMORY. Never throws.
    HRESULT CopyTo(AM_MEDIA_TYPE* target) const;
};

// Task-memory copies as they cross interfaces; null when memory is short.
AM_MEDIA_TYPE* CreateMediaType(const AM_MEDIA_TYPE& source);
void FreeMediaType(AM_MEDIA_TYPE& type);    // the block and the unknown
void DeleteMediaType(AM_MEDIA_TYPE* type);  // and the record itself; null is harmless

}  // namespace vex
