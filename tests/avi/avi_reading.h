// Opens AVI bytes with the handler and reads packets the way the frame does.
#pragma once

#include <chrono>
#include <cstdint>
#include <numeric>
#include <string>
#include <vector>

#include "formats/avi/avi_read_handler.h"
#include "support/avi_builder.h"
#include "support/handler_reading.h"

namespace vex::test {

// Packet streams are named by the two digits of their chunk codes.
inline constexpr std::uint32_t kStream00 = '0' | '0' << 8;
inline constexpr std::uint32_t kStream01 = '0' | '1' << 8;
inline constexpr std::uint32_t kStream02 = '0' | '2' << 8;

// From GTempFile or bytes. The scan pauses for `pause` before it looks whether the file has grown.
class GAviReading : public GHandlerReading<GAvi2ReadHandler> {
public:
    template <class Source>
    explicit GAviReading(Source&& source, std::chrono::milliseconds pause = std::chrono::milliseconds(1))
        : GHandlerReading(std::forward<Source>(source), GAviScanPauses{pause, pause})
    {
    }
    std::string Index() const { return Property("index"); }
};

inline std::vector<GReadPacket> ReadFile(const std::vector<std::uint8_t>& bytes)
{
    return GAviReading(bytes).ReadAll();
}

// One video stream; chunk i is filled with the byte i + 1 and has 16 + i bytes.
inline GAviTestFile NumberedVideo(int count, GAviTestIndex index)
{
    GAviTestFile file{.streams = {VideoStream()}, .parts = {{}}, .index = index};
    for (int i = 0; i < count; ++i)
        file.parts[0].push_back(Chunk("00dc", static_cast<std::size_t>(16 + i), static_cast<std::uint8_t>(i + 1)));
    return file;
}

// Three streams; in every part five chunks, one of them empty.
inline GAviTestFile SmallFile(GAviTestIndex index, std::size_t parts)
{
    GAviTestStream mp3{.type = "auds", .rate = 16'000, .format = WaveFormat(0x55, 2, 44'100, 16'000, 1152)};
    GAviTestFile file{.streams = {VideoStream(), PcmStream(), mp3}, .parts = {}, .index = index, .totalFrames = 3};
    for (std::size_t part = 0; part < parts; ++part) {
        file.parts.push_back({Mpeg4Chunk("00dc", 20, true), Chunk("01wb", 12), Chunk("02wb", 7),
                              Mpeg4Chunk("00dc", 13, false), Chunk("00dc", 0)});
    }
    return file;
}

// The marks of NumberedVideo(count).
inline std::vector<int> Numbers(int count)
{
    std::vector<int> numbers(static_cast<std::size_t>(count));
    std::iota(numbers.begin(), numbers.end(), 1);
    return numbers;
}

}  // namespace vex::test
