// The Matroska source filter.
#pragma once

#include "formats/mkv/mkv_interface.h"
#include "framework/source_filter.h"

namespace vex {

inline constexpr GFilterRules kMkvRules{
    .mediaTimes = GMediaTimeRule::None,
    .sync = GSyncRule::KeyFrame,
    .seekRelay = GSeekRelay::OncePerTarget,
    .segmentEnd = GSegmentEnd::Duration,
    .resize = GResizeRule::DropOnFailure,
    .seekOptions = true,
    .prerollAtFirst = false,
};

class CMKV_Filter final : public CVexFilter, public IVexMKV {
public:
    explicit CMKV_Filter(IUnknown* outer);

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

    // IVexMKV
    STDMETHODIMP SetKeyFrameSeek(BOOL enable) override { return SetOption(keyFrameSeek, enable); }
    STDMETHODIMP GetKeyFrameSeek(BOOL* pEnable) override { return GetOption(keyFrameSeek, pEnable); }
    STDMETHODIMP SetPreroll(BOOL enable) override;
    STDMETHODIMP GetPreroll(BOOL* pEnable) override { return GetOption(prerollMark, pEnable); }

protected:
    std::unique_ptr<CVexOutputPin> MakePin(const GStreamInfo& stream) override;
};

}  // namespace vex
