#include "formats/mpeg/pes_assembler.h"

#include <algorithm>
#include <utility>

namespace vex {

void GPesUnit::Swap(GPesUnit& other)
{
    std::swap(data, other.data);
    std::swap(pts, other.pts);
    std::swap(position, other.position);
}

void GPesAssembler::Reset(bool untimed)
{
    building.data.Clear();
    open = false;
    committed = 0;
    untimedAllowed = untimed;
    ready = false;
    state = GState::Idle;
    head.clear();
}

void GPesAssembler::Push(bool begins, GBytes data, std::int64_t position)
{
    if (begins) {
        EndPacket(position);
        state = GState::Header;
        packetPosition = position;
    }
    if (state == GState::Header)
        ReadHeader(data);
    if (state == GState::Payload)
        Append(data);
}

void GPesAssembler::End(std::int64_t position)
{
    EndPacket(position);
    if (open && committed > 0)
        Finish();
    open = false;
}

// The packet is over, whatever it announced. One that lacks bytes is dropped, and the unit keeps those before it.
void GPesAssembler::EndPacket(std::int64_t position)
{
    if (state == GState::Payload && unbounded) {
        committed = building.data.Size();
    } else if (state != GState::Idle) {
        building.data.Truncate(committed);
        damage.Add("a packet is cut short", packetPosition, static_cast<std::uint64_t>(position - packetPosition));
    }
    state = GState::Idle;
    head.clear();
}

// Leaves in `data` what is payload.
void GPesAssembler::ReadHeader(GBytes& data)
{
    GPesHeader header;
    const std::size_t before = head.size();
    if (before > 0)
        head.insert(head.end(), data.begin(), data.end());
    switch (ReadPesHeader(before > 0 ? GBytes(head) : data, syntax, header)) {
    case GPesResult::NeedMore:
        if (before == 0)
            head.assign(data.begin(), data.end());
        if (head.size() <= kMostPesHeader)
            return;
        [[fallthrough]];
    case GPesResult::Malformed:
        damage.Add("no packet header where a packet begins", packetPosition);
        state = GState::Idle;
        head.clear();
        return;
    case GPesResult::Whole:
        break;
    }
    data = data.subspan(header.headerSize - std::min(header.headerSize, before));
    head.clear();
    BeginPayload(header);
}

void GPesAssembler::BeginPayload(const GPesHeader& header)
{
    state = GState::Idle;
    if (header.scrambled) {
        damage.Add("a packet is scrambled", packetPosition);
        return;
    }
    if (header.pts || (!open && untimedAllowed)) {
        if (open && committed > 0)
            Finish();
        building.data.Clear();
        building.pts = header.pts;
        building.position = packetPosition;
        committed = 0;
        open = true;
        untimedAllowed = untimedAllowed && !header.pts;
    }
    if (!open)
        return;
    unbounded = header.Unbounded();
    left = unbounded ? 0 : header.PayloadSize();
    stripLeft = strip;
    state = unbounded || left > 0 ? GState::Payload : GState::Idle;
}

void GPesAssembler::Append(GBytes data)
{
    if (!unbounded) {
        data = data.first(static_cast<std::size_t>(std::min<std::uint64_t>(left, data.size())));
        left -= data.size();
    }
    const std::size_t skipped = std::min(stripLeft, data.size());
    stripLeft -= skipped;
    data = data.subspan(skipped);
    if (building.data.Size() > 0 && building.data.Size() + data.size() > limit && !ready) {
        const auto pts = building.pts;
        const std::int64_t position = building.position;
        Finish();
        building.data.Clear();
        building.pts = pts;
        building.position = position;
        committed = 0;
    }
    building.data.Append(data);
    if (!unbounded && left == 0) {
        committed = building.data.Size();
        state = GState::Idle;
    }
}

void GPesAssembler::Finish()
{
    done.Swap(building);
    ready = true;
}

}  // namespace vex
