// What a test keeps of a packet that a read handler gave, and questions to a list of them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <vector>

#include "framework/contract/read_handler.h"

namespace vex::test {

inline constexpr REFERENCE_TIME kSecond = 10'000'000;   // 100 ns
inline constexpr REFERENCE_TIME kMillisecond = 10'000;  // 100 ns

// One packet that was read. A format whose packets carry more derives from it and copies that in a Take of its own.
struct GReadPacket {
    GNextPacket next;
    std::vector<std::uint8_t> payload;
    std::size_t capacity = 0;  // bytes of the buffer that the payload was read into
    bool delivered = false;    // what ReadPayload returned

    void Take(const GPacket2& packet)
    {
        payload.assign(packet.data.Span().begin(), packet.data.Span().end());
        capacity = packet.data.Capacity();
    }
    // What is wrong with the packet whatever its file is like; null when it is sound.
    const char* Fault(std::uint64_t fileSize) const
    {
        if (payload.size() > fileSize)
            return "a payload is larger than its file";
        if (next.start != kNoTime && next.start < 0)
            return "a packet starts before the file";
        return TimeFault();
    }

protected:
    const char* TimeFault() const
    {
        const bool backwards = next.start != kNoTime && next.stop != kNoTime && next.stop < next.start;
        return backwards ? "a packet ends before it starts" : nullptr;
    }
};

template <class Read>
std::vector<Read> OfStream(const std::vector<Read>& packets, std::uint32_t stream)
{
    std::vector<Read> own;
    std::ranges::copy_if(packets, std::back_inserter(own),
                         [&](const Read& read) { return read.next.stream == stream; });
    return own;
}

// One announced field of every packet in order: Fields(packets, &GNextPacket::start).
template <class Read, class Field>
std::vector<Field> Fields(const std::vector<Read>& packets, Field GNextPacket::*field)
{
    std::vector<Field> fields;
    for (const Read& packet : packets)
        fields.push_back(packet.next.*field);
    return fields;
}
template <class Read>
std::vector<REFERENCE_TIME> Starts(const std::vector<Read>& packets)
{
    return Fields(packets, &GNextPacket::start);
}
template <class Read>
std::vector<bool> KeyFlags(const std::vector<Read>& packets)
{
    return Fields(packets, &GNextPacket::keyFrame);
}

// The first payload byte of every packet in order, 0 for an empty one: who came when.
inline std::vector<int> Marks(const std::vector<GReadPacket>& packets)
{
    std::vector<int> marks;
    for (const GReadPacket& packet : packets)
        marks.push_back(packet.payload.empty() ? 0 : packet.payload.front());
    return marks;
}

}  // namespace vex::test
