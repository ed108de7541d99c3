// The streams of OGM files: video, audio and text under a header of their own. The position counts granule units.
#pragma once

#include "formats/ogg/ogg_stream.h"

namespace vex {

// The header packet behind its type byte.
struct GOgmHeader {
    GBytes subtype;             // 4 bytes
    std::int64_t timeUnit = 0;  // 100 ns
    std::int64_t samplesPerUnit = 0;
    std::int32_t defaultLength = 0;  // of a packet, granule units
    std::int32_t bufferSize = 0;     // bytes
    std::uint16_t bitsPerSample = 0;
    std::int32_t width = 0;            // video
    std::int32_t height = 0;           // video
    std::uint16_t channels = 0;        // audio
    std::uint16_t blockAlign = 0;      // audio
    std::uint32_t bytesPerSecond = 0;  // audio
    GBytes extra;                      // codec data
};

class GOgmStream : public GOGG2ReadStream {
public:
    bool HeaderIn(const GOggPacket& packet) override;
    std::size_t PayloadOffset(const GOggPacket& packet) const override;
    REFERENCE_TIME PacketTime(const GOggPacket& packet) override;

protected:
    using GOGG2ReadStream::GOGG2ReadStream;

    // The duration field, or the default length.
    std::int64_t Length(const GOggPacket& packet) const override;
    REFERENCE_TIME PositionTime(std::int64_t units) const override { return OggTime(units, header.timeUnit, 1); }
    // Bytes of the largest packet, as the queues count them.
    std::uint32_t QueueSizeHint() const;

    GOgmHeader header;  // its bytes lie in header slot 0
};

class GOgg2VideoStream final : public GOgmStream {
public:
    explicit GOgg2VideoStream(std::uint32_t serial) : GOgmStream(GOggKind::OgmVideo, serial) {}

    std::uint32_t BuildMediaType(CMediaType& type) const override;
    bool IsKeyFrame(const GOggPacket& packet) const override;
    REFERENCE_TIME PacketTime(const GOggPacket& packet) override;

protected:
    std::int64_t Step(const GOggPacket& packet) const override;
    std::int64_t FirstPosition(std::int64_t firstLength) const override { return -firstLength; }
};

class GOgg2AudioStream final : public GOgmStream {
public:
    explicit GOgg2AudioStream(std::uint32_t serial) : GOgmStream(GOggKind::OgmAudio, serial) {}

    bool HeaderIn(const GOggPacket& packet) override;
    std::uint32_t BuildMediaType(CMediaType& type) const override;

protected:
    REFERENCE_TIME PositionTime(std::int64_t units) const override;
};

class GOgg2TextStream final : public GOgmStream {
public:
    explicit GOgg2TextStream(std::uint32_t serial) : GOgmStream(GOggKind::OgmText, serial) {}

    std::uint32_t BuildMediaType(CMediaType& type) const override;
    bool IsKeyFrame(const GOggPacket&) const override { return true; }
    // No packet is a header here: the bit has no meaning in texts.
    REFERENCE_TIME PacketTime(const GOggPacket& packet) override { return GOGG2ReadStream::PacketTime(packet); }
    REFERENCE_TIME CurrentTime() const override { return 0; }
    REFERENCE_TIME StopTime(const GOggPacket& packet) const override;
    LONGLONG MediaTimeStart(const GOggPacket& packet) const override { return packet.granule; }
    LONGLONG MediaTimeStop(const GOggPacket& packet) const override;

protected:
    std::int64_t Step(const GOggPacket&) const override { return header.samplesPerUnit; }
    bool CountsBack() const override { return false; }
};

}  // namespace vex
