// The first inputs of the AVI fuzz target.

#include "avi/avi_reading.h"
#include "fuzz/fuzz_seeds.h"

namespace vex {

void fuzz::WriteSeeds(GSeedFolder& seeds)
{
    using namespace test;
    GAviTestFile lists = SmallFile(GAviTestIndex::None, 3);
    lists.recLists = true;
    lists.junkBeforeData = 10;
    std::vector<std::uint8_t> unfilled = SmallFile(GAviTestIndex::None, 1).Build();
    Put(unfilled, 4, 0);
    Put(unfilled, PositionOf(unfilled, "movi") - 4, 0);

    seeds.Write("idx1-relative", SmallFile(GAviTestIndex::Idx1Relative, 1).Build(), 0x40);
    seeds.Write("idx1-absolute", SmallFile(GAviTestIndex::Idx1Absolute, 1).Build(), 0x20);
    seeds.Write("opendml", SmallFile(GAviTestIndex::OpenDml, 2).Build(), 0x60);
    seeds.Write("opendml-fields", SmallFile(GAviTestIndex::OpenDmlFields, 2).Build(), 0x60);
    seeds.Write("opendml-growing", SmallFile(GAviTestIndex::OpenDml, 3).Build(), 0x81);
    seeds.Write("scan-lists", lists.Build(), 0x80);
    seeds.Write("scan-growing", lists.Build(), 0xA1);
    seeds.Write("unfilled-sizes", unfilled, 0xC1);
}

}  // namespace vex
