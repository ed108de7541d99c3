#include "formats/mkv/mkv_content.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "io/limits.h"

namespace vex {
namespace {

// First guess at what a frame inflates to: its own size this many times, plus the least step.
constexpr std::size_t kFirstGuess = 4;
constexpr std::size_t kLeastStep = 1000;  // bytes

}  // namespace

struct GMkvContentDecoder::GInflater {
    GInflater()
    {
        if (inflateInit(&stream) != Z_OK)
            throw std::bad_alloc();
    }
    ~GInflater() { inflateEnd(&stream); }
    GInflater(const GInflater&) = delete;
    GInflater& operator=(const GInflater&) = delete;

    z_stream stream{};
};

GMkvContentDecoder::GMkvContentDecoder() = default;
GMkvContentDecoder::~GMkvContentDecoder() = default;

bool GMkvContentDecoder::Decode(const GMkvTrack& track, std::uint64_t scopeBits, GBuffer& data)
{
    for (const GMkvContentEncoding& encoding : track.contentEncodings) {
        if ((encoding.contentEncodingScope.value & scopeBits) == 0)
            continue;
        if (encoding.contentEncodingType.value == GMkvContentEncoding::kEncryption)
            return false;
        if (encoding.contentEncodingType.value != GMkvContentEncoding::kCompression)
            continue;
        switch (encoding.contentCompAlgo.value) {
        case GMkvContentEncoding::kZlib:
            if (!Inflate(data))
                return false;
            break;
        case GMkvContentEncoding::kHeaderStripping:
            AddHeader(encoding.contentCompSettings, data);
            return true;  // the records behind it are not applied
        default:
            return false;
        }
    }
    return true;
}

bool GMkvContentDecoder::Inflate(GBuffer& data)
{
    if (data.Empty() || data.Size() > kMaxPacketSize)
        return false;
    if (!inflater)
        inflater = std::make_unique<GInflater>();
    z_stream& stream = inflater->stream;
    if (inflateReset(&stream) != Z_OK)
        return false;
    stream.next_in = data.Data();
    stream.avail_in = static_cast<uInt>(data.Size());

    std::size_t done = 0;
    std::size_t room = std::max(scratch.Capacity(), std::min(data.Size(), kMaxInflatedSize) * kFirstGuess + kLeastStep);
    for (;;) {
        room = std::min(room, kMaxInflatedSize);
        scratch.Resize(room, done);
        stream.next_out = scratch.Data() + done;
        stream.avail_out = static_cast<uInt>(room - done);
        const int result = inflate(&stream, Z_NO_FLUSH);
        done = room - stream.avail_out;
        if (result == Z_STREAM_END)
            break;
        // Anything but a full buffer is damage, and so is a stream that ends before its end.
        if ((result != Z_OK && result != Z_BUF_ERROR) || stream.avail_out != 0)
            return false;
        if (room == kMaxInflatedSize) {
            scratch.Free();
            return false;
        }
        room *= 2;
    }
    data.Assign(scratch.Span().first(done));  // a copy, so that no queue holds more memory than it counts
    return true;
}

void GMkvContentDecoder::AddHeader(const GMkvBytes& header, GBuffer& data)
{
    if (header.empty())
        return;
    const std::size_t stored = data.Size();
    data.Resize(header.size() + stored, stored);
    std::memmove(data.Data() + header.size(), data.Data(), stored);
    std::memcpy(data.Data(), header.data(), header.size());
}

}  // namespace vex
