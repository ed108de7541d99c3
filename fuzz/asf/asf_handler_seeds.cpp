// The first inputs of the ASF fuzz target.

#include "fuzz/fuzz_seeds.h"
#include "support/asf_builder.h"

namespace vex {

void fuzz::WriteSeeds(GSeedFolder& seeds)
{
    using namespace test;
    GAsfTestFile sound{.streams = {{.number = 1, .spread = {2, 6, 0, 3, 0, 1, 0, 0}}}};
    sound.extension.Object(GAsfId::LanguageList, LanguageList({"de"}))
        .Object(GAsfId::ExtendedStreamProperties, ExtendedStream(1, 64'000, 0));
    sound.packets = Packet({Whole(1, 1'000, std::vector<std::uint8_t>(12, 7))});
    sound.packets.Raw(Packet({{.timeMs = 1'020, .data = {1, 9, 2, 8, 8}, .replicated = 1, .deltaMs = 20}}).bytes);
    GAsfTestFile odd = AsfFilm(4, 2);
    odd.packets = {};
    for (unsigned i = 0; i < 8; ++i)
        odd.packets.Raw(Packet({Whole(2, 1'000 + 40 * i, {1, 2, 3})}, 100,
                               {.correction = i % 2 == 0, .multiple = i < 4, .packetType = 2, .sequenceType = i & 3})
                            .bytes);
    GAsfTestFile joined = AsfFilm(2, 1);
    joined.children.Object(GAsfId::BitrateMutualExclusion, GAsfBytes().Zeros(16).Raw(Numbers({1, 2}).bytes));
    joined.packets.Raw(
        Packet({{.stream = 2, .key = true, .objectSize = 60, .data = std::vector<std::uint8_t>(40)}}).bytes);
    joined.packets.Raw(Packet({{.stream = 2, .data = std::vector<std::uint8_t>(20), .replicated = 0}}).bytes);
    GAsfTestFile broadcast = AsfFilm(6, 3);
    broadcast.playDurationMs = 0;
    broadcast.dataSize = 0;
    broadcast.behindData = {};

    seeds.Write("film", AsfFilm(6, 3).Bytes(), 0x60);
    seeds.Write("growing", AsfFilm(6, 3).Bytes(), 0x81);
    seeds.Write("sound", sound.Bytes(), 0x40);
    seeds.Write("shapes", odd.Bytes(), 0x60);
    seeds.Write("joined", joined.Bytes(), 0x60);
    seeds.Write("broadcast", broadcast.Bytes(), 0x46);
}

}  // namespace vex
