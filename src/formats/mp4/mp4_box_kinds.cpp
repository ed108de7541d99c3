#include "formats/mp4/mp4_box_kinds.h"

#include <algorithm>
#include <array>

#include "io/fourcc.h"

namespace vex {
namespace {

struct GRow {
    std::uint32_t type;
    GMp4BoxKind kind;
};

constexpr GRow Row(const char (&type)[5], GMp4BoxKind kind) { return {FourCC(type), kind}; }

// Types without a row, and the content of the rest ("dinf", "udta", "tref", "edts", "moof" and others), are never
// looked at.
constexpr auto kRows = [] {
    using enum GMp4BoxKind;
    auto rows = std::to_array<GRow>({
        Row("moov", Container),
        Row("trak", Container),
        Row("mdia", Container),
        Row("minf", Container),
        Row("stbl", Container),
        Row("wave", Container),

        Row("ftyp", Leaf),
        Row("mvhd", Leaf),
        Row("tkhd", Leaf),
        Row("mdhd", Leaf),
        Row("hdlr", Leaf),
        Row("stts", Leaf),
        Row("stsz", Leaf),
        Row("stsc", Leaf),
        Row("stco", Leaf),
        Row("co64", Leaf),
        Row("stss", Leaf),
        Row("esds", Leaf),
        Row("avcC", Leaf),
        Row("dac3", Leaf),
        Row("dqcp", Leaf),
        Row("d723", Leaf),
        Row("devc", Leaf),
        Row("dcom", Leaf),
        Row("cmvd", Leaf),

        Row("stsd", SampleDescriptions),
        Row("free", Free),
        Row("cmov", CompressedHeader),

        Row("soun", SoundEntry),
        Row("ms\0\x02", SoundEntry),
        Row("ms\0\x11", SoundEntry),
        Row("ms\0\x55", SoundEntry),
        Row(".mp3", SoundEntry),
        Row("mp4a", SoundEntry),
        Row("twos", SoundEntry),
        Row("sowt", SoundEntry),
        Row("QDMC", SoundEntry),
        Row("QDM2", SoundEntry),
        Row("ima4", SoundEntry),
        Row("IMA4", SoundEntry),
        Row("dvi ", SoundEntry),
        Row("alaw", SoundEntry),
        Row("ulaw", SoundEntry),
        Row("raw ", SoundEntry),
        Row("MAC3", SoundEntry),
        Row("MAC6", SoundEntry),
        Row("Qclp", SoundEntry),
        Row("sqcp", SoundEntry),
        Row("s723", SoundEntry),
        Row("samr", SoundEntry),
        Row("sevc", SoundEntry),
        Row("evrc", SoundEntry),
        Row("in24", SoundEntry),
        Row("ac-3", SoundEntry),

        Row("vide", VideoEntry),
        Row("mp4v", VideoEntry),
        Row("SVQ1", VideoEntry),
        Row("ZyGo", VideoEntry),
        Row("DIVX", VideoEntry),
        Row("h263", VideoEntry),
        Row("h264", VideoEntry),
        Row("s263", VideoEntry),
        Row("avc1", VideoEntry),
        Row("cvid", VideoEntry),
        Row("3IV1", VideoEntry),
        Row("3iv1", VideoEntry),
        Row("3IV2", VideoEntry),
        Row("3iv2", VideoEntry),
        Row("3IVD", VideoEntry),
        Row("3ivd", VideoEntry),
        Row("3VID", VideoEntry),
        Row("3vid", VideoEntry),
        Row("mjpa", VideoEntry),
        Row("mjqt", VideoEntry),
        Row("dvc ", VideoEntry),
        Row("dvp ", VideoEntry),
        Row("VP31", VideoEntry),
        Row("vp31", VideoEntry),
        Row("jpeg", VideoEntry),
        Row("IV41", VideoEntry),
        Row("rpza", VideoEntry),
        Row("rle ", VideoEntry),
        Row("SVQ3", VideoEntry),
    });
    std::ranges::sort(rows, {}, &GRow::type);
    return rows;
}();

static_assert(std::ranges::adjacent_find(kRows, {}, &GRow::type) == kRows.end(), "two rows for one type");

}  // namespace

GMp4BoxKind KindOfBox(std::uint32_t type)
{
    const auto* const row = std::ranges::lower_bound(kRows, type, {}, &GRow::type);
    return row != kRows.end() && row->type == type ? row->kind : GMp4BoxKind::Place;
}

}  // namespace vex
