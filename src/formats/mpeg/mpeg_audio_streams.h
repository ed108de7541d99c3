// Audio in MPEG containers. `Parse` gets a payload without its PES header.
#pragma once

#include "formats/mpeg/mpeg_read_stream.h"
#include "media/ac3_header.h"
#include "media/adts_header.h"
#include "media/dts_header.h"
#include "media/lpcm_header.h"
#include "media/mpeg_audio.h"

namespace vex {

// How far a sync word is believed. Two bytes turn up by chance in any data.
enum class GMpegTrust : std::uint8_t {
    Anywhere,   // the first one found counts
    Confirmed,  // it begins the payload, or another frame follows it
    Followed,   // another frame follows it
};

class GMpeg2AC3Stream final : public GMpeg2ReadStream {
public:
    explicit GMpeg2AC3Stream(const GAc3Header& found) : GMpeg2ReadStream(GMpeg2Kind::Ac3), header(found) {}
    static GMpegParse Parse(GBytes payload, GMpegTrust trust);

    std::vector<CMediaType> MediaTypes() const override;
    std::size_t HeaderBytes(std::uint8_t subStream) const override;

private:
    const GAc3Header header;
};

class GMpeg2DTSStream final : public GMpeg2ReadStream {
public:
    explicit GMpeg2DTSStream(const GDtsHeader& found) : GMpeg2ReadStream(GMpeg2Kind::Dts), header(found) {}
    static GMpegParse Parse(GBytes payload);

    std::vector<CMediaType> MediaTypes() const override;
    std::size_t HeaderBytes(std::uint8_t subStream) const override;

private:
    const GDtsHeader header;
};

// AAC behind ADTS headers, which stay in the samples.
class GMpeg2AACStream final : public GMpeg2ReadStream {
public:
    GMpeg2AACStream(const GAdtsHeader& found, GBytes payload);
    static GMpegParse Parse(GBytes payload, GMpegTrust trust);

    std::vector<CMediaType> MediaTypes() const override;

private:
    const GAdtsHeader header;
};

// Layers I to III.
class GMpeg2AUDIOStream final : public GMpeg2ReadStream {
public:
    explicit GMpeg2AUDIOStream(const GMpegAudioHeader& found) : GMpeg2ReadStream(GMpeg2Kind::MpegAudio), header(found)
    {
    }
    static GMpegParse Parse(GBytes payload, GMpegTrust trust);

    std::vector<CMediaType> MediaTypes() const override;

private:
    const GMpegAudioHeader header;
};

// DVD LPCM, whose samples lose the header of 7 bytes.
class GMpeg2LPCMStream final : public GMpeg2ReadStream {
public:
    explicit GMpeg2LPCMStream(const GLpcmHeader& found) : GMpeg2ReadStream(GMpeg2Kind::Lpcm), header(found) {}
    static GMpegParse Parse(GBytes payload);

    std::vector<CMediaType> MediaTypes() const override;
    std::size_t HeaderBytes(std::uint8_t) const override { return kLpcmHeaderSize; }

private:
    const GLpcmHeader header;
};

}  // namespace vex
