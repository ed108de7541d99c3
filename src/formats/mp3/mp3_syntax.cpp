#include "formats/mp3/mp3_syntax.h"

namespace vex {

std::optional<GMp3Header> GMp3Syntax::Decode(GBytes bytes)
{
    const auto coded = ReadMpegAudioHeader(bytes);
    if (!coded || coded->layer > 3)
        return std::nullopt;
    const bool low = coded->LowSamplingFrequency();
    const bool mpeg25 = coded->version < GMpegAudioHeader::kMpeg2;
    const std::size_t rate = coded->rateIndex + (mpeg25 ? 6u : low ? 3u : 0u);
    const std::uint32_t bitRate = MpegAudioBitRate(low, coded->layer, coded->bitRateIndex);
    if (rate >= kMpegAudioRates.size() || bitRate == 0)
        return std::nullopt;
    GMp3Header header;
    header.layer = coded->layer;
    header.lowFrequencies = low;
    header.mono = coded->Channels() == 1;
    header.sampleRate = kMpegAudioRates[rate];
    header.frameSize =
        static_cast<std::uint16_t>(MpegAudioFrameSize(header.layer, low, bitRate, header.sampleRate, coded->padding));
    return header;
}

}  // namespace vex
