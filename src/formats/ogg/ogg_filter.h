// The Ogg source filters: two names for one reader.
#pragma once

#include "formats/ogg/ogg_interface.h"
#include "framework/source_filter.h"

namespace vex {

inline constexpr GFilterRules kOggRules{
    .queue = {.minimumBytes = 10 * kMiB},
    .minimumRange = 432'000'000'000,  // 12 hours
    .firstVideoOnly = true,
    .seekOptions = true,
};

class COGG2_Filter final : public CVexFilter, public IVexOGG2 {
public:
    explicit COGG2_Filter(IUnknown* outer);

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

    // IVexOGG2
    STDMETHODIMP SetKeyFrameSeek(LONG enable) override { return SetOption(keyFrameSeek, enable); }
    STDMETHODIMP GetKeyFrameSeek(LONG* pEnable) override { return GetOption(keyFrameSeek, pEnable); }
    STDMETHODIMP GetDuration(LONGLONG* pDuration) override;
    STDMETHODIMP SetPrerollMark(LONG enable) override { return SetOption(prerollMark, enable); }
    STDMETHODIMP GetPrerollMark(LONG* pEnable) override { return GetOption(prerollMark, pEnable); }
};

// The older filter: pins with numbered names, no private interface.
class COGG_Filter final : public CVexFilter {
public:
    explicit COGG_Filter(IUnknown* outer);
};

}  // namespace vex
