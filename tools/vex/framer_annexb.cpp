// H.264 out of length-prefixed units (ISO/IEC 14496-15) into the byte stream format (ITU-T H.264 annex B).
#include <cstring>
#include <vector>

#include "media/video_types.h"
#include "tools/vex/framers.h"

namespace vex {

namespace {

constexpr std::uint8_t kStartCode[] = {0, 0, 0, 1};

class GAnnexBFramer final : public GFramer {
public:
    GAnnexBFramer(unsigned lengthBytes, std::vector<std::uint8_t> sets)
        : prefixBytes(lengthBytes), parameterSets(std::move(sets))
    {
    }

    void Describe(const GJson& properties) override { byteStream = properties.value("byte_stream", false); }
    void Begin(const GByteSink& out) override
    {
        if (!byteStream)
            Units(parameterSets, 2, out);
    }

    void Sample(const GSampleView& sample, const GByteSink& out) override
    {
        if (byteStream)
            out(sample.data);
        else if (!Units(sample.data, prefixBytes, out))
            ++misshapen;
    }

private:
    // A unit that claims more than is there is cut; false.
    static bool Units(std::span<const std::uint8_t> bytes, unsigned lengthBytes, const GByteSink& out)
    {
        while (bytes.size() >= lengthBytes) {
            std::size_t length = 0;
            for (unsigned i = 0; i < lengthBytes; ++i)
                length = length << 8 | bytes[i];
            bytes = bytes.subspan(lengthBytes);
            const bool whole = length <= bytes.size();
            if (!whole)
                length = bytes.size();
            if (length > 0) {
                out(kStartCode);
                out(bytes.first(length));
            }
            if (!whole)
                return false;
            bytes = bytes.subspan(length);
        }
        return bytes.empty();
    }

    const unsigned prefixBytes;
    const std::vector<std::uint8_t> parameterSets;  // each behind a two-byte length
    bool byteStream = false;                        // the samples have start codes and need nothing
};

}  // namespace

std::unique_ptr<GFramer> MakeAnnexBFramer(const CMediaType& type)
{
    const auto sets = SequenceHeader(type);
    if (type.formattype != FORMAT_MPEG2Video || !sets)
        return nullptr;
    DWORD lengthBytes = 0;
    std::memcpy(&lengthBytes, type.pbFormat + offsetof(MPEG2VIDEOINFO, dwFlags), sizeof lengthBytes);
    if (lengthBytes < 1 || lengthBytes > 4)
        return nullptr;
    return std::make_unique<GAnnexBFramer>(static_cast<unsigned>(lengthBytes),
                                           std::vector<std::uint8_t>(sets->begin(), sets->end()));
}

}  // namespace vex
