// The reader thread: from the handler's packets to the pins' queues.

#include <algorithm>

#include "framework/reference_times.h"
#include "framework/source_filter.h"
#include "platform/on_exit.h"
#include "platform/trace.h"

namespace vex {

DWORD CVexFilter::GReader::ThreadProc()
{
    {
        const GOnExit ready([&] {
            filter.resumeEvent.Set();
            filter.readerReady.Set();
        });
        SetCurrentThreadName("vex reader");
        filter.HaltPins();
        filter.RestartPins(GQueues::Empty);
    }
    for (;;) {
        filter.resumeEvent.Wait();
        filter.ReadToEnd();
        const DWORD command = GetRequest();
        Reply(0);
        if (command == kExit)
            return 0;
    }
}

void CVexFilter::ReadToEnd()
{
    try {
        GLoopEnd end = GLoopEnd::EndOfStream;
        try {
            end = PacketLoop();
        } catch (const std::bad_alloc&) {
            Trace("Memory ran short: what was read is played out\n");
        }
        if (end == GLoopEnd::EndOfStream && !reader.RequestPending())
            EndStreams();
    } catch (...) {
        Trace("The reader gave up\n");
        NotifyEvent(EC_ERRORABORT, E_UNEXPECTED, 0);
    }
}

CVexFilter::GLoopEnd CVexFilter::PacketLoop()
{
    if (!BeginRun())
        return GLoopEnd::EndOfStream;
    while (!reader.RequestPending()) {
        GNextPacket next;
        switch (handler->ReadPacket(next)) {
        case GReadStatus::End:
            return GLoopEnd::EndOfStream;
        case GReadStatus::Again:
            break;
        case GReadStatus::Wait:
            reader.Idle();
            break;
        case GReadStatus::StreamEnd:
            EndStream(next.stream);
            break;
        case GReadStatus::Packet:
            if (!PassOn(next))
                return GLoopEnd::EndOfStream;
            break;
        }
    }
    return GLoopEnd::Interrupted;
}

// False when a pin refused what was to be sent first.
bool CVexFilter::BeginRun()
{
    if (std::exchange(resumesRun, false))
        return !carried || Push(*carriedTo, std::move(carried));
    std::vector<std::uint32_t> wanted = filterStreams;
    for (CVexOutputPin* pin : pins) {
        pin->BeginRun();
        if (pin->IsConnected())
            wanted.push_back(pin->StreamNumber());
    }
    handler->StartRun(wanted);
    return SendHeaders();
}

bool CVexFilter::SendHeaders()
{
    for (CVexOutputPin* pin : pins) {
        if (!pin->IsConnected())
            continue;
        for (GPacketPtr& packet : handler->HeaderPackets(pin->StreamNumber(), pin->ActiveType())) {
            RebaseTimes(*packet);
            if (!Push(*pin, std::move(packet)))
                return false;
        }
    }
    return true;
}

CVexOutputPin* CVexFilter::FindConnected(std::uint32_t stream) const
{
    const auto pin = std::ranges::find(pins, stream, &CVexOutputPin::StreamNumber);
    return pin != pins.end() && (*pin)->IsConnected() ? *pin : nullptr;
}

// False when the pin does not run any more. The payload of a packet that nobody wants is not even read.
bool CVexFilter::PassOn(const GNextPacket& next)
{
    if (next.size == 0 && rules.emptyPayloads == GEmptyPayloads::Skip)
        return true;
    if (CVexOutputPin* const pin = FindConnected(next.stream))
        return PassToPin(next, *pin);
    if (std::ranges::find(filterStreams, next.stream) != filterStreams.end())
        PassToFilter(next);
    return true;
}

namespace {

void Describe(const GNextPacket& next, GPacket2& packet)
{
    packet.stream = next.stream;
    packet.keyFrame = next.keyFrame;
    packet.discontinuity = next.discontinuity;
    packet.continuation = next.continuation;
    packet.start = next.start;
    packet.stop = next.start == kNoTime ? kNoTime : next.stop;
    if (next.start == kNoTime)
        return;
    const bool own = next.mediaStart != kNoTime;
    packet.mediaStart = own ? next.mediaStart : next.start / kUnitsPerMediaTime;
    packet.mediaStop = own || next.stop == kNoTime ? next.mediaStop : next.stop / kUnitsPerMediaTime;
}

}  // namespace

bool CVexFilter::PassToPin(const GNextPacket& next, CVexOutputPin& pin)
{
    if (pin.HasEnded())
        return true;
    const bool early = next.start != kNoTime && FromBase(next.start, seekBase.load(std::memory_order_relaxed)) < 0;
    if (early && pin.Stream().dropBeforeSegment)
        return true;
    GPacketPtr packet = pin.Pool().Take(next.size);
    if (!packet)
        packet = handler->NewPacket(next.stream);
    Describe(next, *packet);
    // A payload may turn out to be empty only when it is read.
    const bool skips = rules.emptyPayloads == GEmptyPayloads::Skip;
    const bool left = !next.continuation && pin.ReadsItself(next.size) && handler->LeavePayload(*packet);
    if (!left && (!handler->ReadPayload(*packet) || (skips && packet->GetSize() == 0))) {
        pin.Pool().Give(std::move(packet));
        return true;
    }
    RebaseTimes(*packet);
    return Push(pin, std::move(packet));
}

void CVexFilter::PassToFilter(const GNextPacket& next)
{
    GPacketPtr packet = handler->NewPacket(next.stream);
    Describe(next, *packet);
    if (!handler->ReadPayload(*packet))
        return;
    RebaseTimes(*packet);
    TakePacket(std::move(packet));
}

// A packet that a full queue kept out when a command came is carried: should the command be a seek that the handler
// refuses, the run goes on without a gap.
bool CVexFilter::Push(CVexOutputPin& pin, GPacketPtr packet)
{
    const std::function<bool()> giveUp = [this] { return reader.RequestPending(); };
    if (pin.Push(packet, giveUp) == GPacketQueue::PushResult::Done)
        return true;
    carried = std::move(packet);
    carriedTo = &pin;
    return false;
}

void CVexFilter::EndStream(std::uint32_t stream)
{
    if (CVexOutputPin* const pin = FindConnected(stream))
        pin->PushEnd();
}

void CVexFilter::EndStreams()
{
    Trace("************************************ EOS ************************************\n");
    for (CVexOutputPin* pin : pins) {
        if (reader.RequestPending())
            return;
        if (pin->IsConnected())
            pin->PushEnd();
    }
}

// From the start of the file to the start of the segment.
void CVexFilter::RebaseTimes(GPacket2& packet)
{
    const REFERENCE_TIME base = seekBase.load(std::memory_order_relaxed);
    packet.start = FromBase(packet.start, base);
    packet.stop = FromBase(packet.stop, base);
}

}  // namespace vex
