// Uses a read handler as a player might, on any file however damaged, and says what no file may lead to.
#pragma once

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/bytes.h"
#include "support/handler_reading.h"

namespace vex::test {

struct GTrialPlan {
    std::span<const std::uint8_t> later{};  // bytes that arrive when what is there has been read
    std::vector<REFERENCE_TIME> targets{};  // of seeks in both modes, 100 ns
    std::size_t mostPackets = 4096;         // of each reading
};

struct GTrialResult {
    bool opened = false;
    std::size_t packets = 0;   // of the first reading
    std::uint64_t damage = 0;  // places met by then
};

// `Reading` is a GHandlerReading or derived from one. A fault is thrown as a std::logic_error.
template <class Reading>
class GHandlerTrial {
public:
    GHandlerTrial(Reading& openReading, const GTrialPlan& trialPlan) : reading(openReading), plan(trialPlan) {}

    GTrialResult Run()
    {
        if (!reading.IsOpen())
            return {};
        const bool steady = Reading::kRereads && plan.later.empty() && reading.Handler().IsIndexComplete();
        Ask();
        const GTotals first = Read();
        const std::uint64_t damage = reading.Damage().count;
        if (!plan.later.empty()) {
            reading.Append(plan.later);
            Read();
        }
        reading.LeavePayloads();  // they are the same bytes
        const bool restarted = reading.Seek(0).has_value();
        const GTotals second = Read();
        Require(!steady || !restarted || second == first, "a second reading from 0 gives other packets");
        for (const REFERENCE_TIME target : plan.targets) {
            Seek(target, GSeekMode::KeyFrame);
            Seek(target, GSeekMode::Independent);
        }
        Interrupt();
        const bool reopened = !plan.later.empty() || reading.Handler().Open("memory").Ok();
        Require(reopened, "what opened once does not open again");
        return {true, first.packets, damage};
    }

private:
    struct GTotals {
        std::size_t packets = 0;
        std::uint64_t bytes = 0;
        std::uint64_t sum = 0;
        bool operator==(const GTotals&) const = default;
        void Add(std::uint64_t value) { sum = (sum ^ value) * 0x100000001B3; }
    };

    static void Require(bool holds, const char* fault)
    {
        if (!holds)
            throw std::logic_error(fault);
    }

    void Ask()
    {
        auto& handler = reading.Handler();
        for (const GStreamInfo& stream : handler.Streams())
            for (const CMediaType& type : stream.mediaTypes)
                handler.HeaderPackets(stream.number, type);
        handler.Properties();
        const auto attachments = handler.Attachments();
        for (std::size_t i = 0; i < attachments.size(); ++i) {
            std::uint8_t bytes[16];
            handler.ReadAttachment(i, 0, bytes);
            Require(attachments[i].size <= reading.LargestPayload(), "an attachment is larger than its file");
        }
        Require(handler.Duration() >= 0 && handler.LongestStreamDuration() >= 0, "a duration is negative");
        reading.AskMore();
    }

    // To the end, or until bytes would have to be waited for, or to the limit.
    GTotals Read()
    {
        GTotals totals;
        while (totals.packets < plan.mostPackets) {
            const auto packet = reading.NextAvailable();
            if (!packet)
                break;
            ++totals.packets;
            totals.bytes += packet->payload.size();
            totals.Add(packet->next.stream);
            totals.Add(static_cast<std::uint64_t>(packet->next.start));
            for (const std::uint8_t byte : packet->payload)
                totals.Add(byte);
        }
        reading.Damage();
        return totals;
    }

    void Seek(REFERENCE_TIME target, GSeekMode mode)
    {
        if (const auto reached = reading.Seek(target, mode)) {
            const char* const fault = reading.SeekFault(target, mode, *reached);
            Require(!fault, fault);
        }
        Read();
    }

    // A call that is to give up must return, and the handler be as good as before.
    void Interrupt()
    {
        reading.Handler().Interrupt(true);
        GNextPacket next;
        reading.Handler().ReadPacket(next);
        reading.Handler().Interrupt(false);
        reading.Seek(0);
        reading.NextAvailable();
    }

    Reading& reading;
    const GTrialPlan& plan;
};

template <class Reading>
GTrialResult TryHandler(Reading& reading, const GTrialPlan& plan = {})
{
    return GHandlerTrial<Reading>(reading, plan).Run();
}

// Tries every prefix. None may give fewer packets than a shorter one; the result is what the whole file gives.
template <class Packets>
std::size_t TryPrefixes(const GTestBytes& whole, Packets packetsOf)
{
    std::size_t most = 0;
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        const std::size_t count = packetsOf(First(whole, size));
        if (count < most)
            throw std::logic_error("fewer packets than of a shorter prefix, cut at " + std::to_string(size));
        most = count;
    }
    return most;
}

// Tries the file with `width` bytes from every position on set to each value.
template <class Use>
void TryBytes(const GTestBytes& whole, std::initializer_list<std::uint8_t> values, Use use, std::size_t width = 1)
{
    for (std::size_t i = 0; i + width <= whole.size(); ++i) {
        for (const std::uint8_t value : values) {
            GTestBytes broken = whole;
            std::fill_n(broken.begin() + static_cast<std::ptrdiff_t>(i), width, value);
            use(broken);
        }
    }
}

}  // namespace vex::test
