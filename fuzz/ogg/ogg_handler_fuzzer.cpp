// The Ogg handler over hostile bytes. Checksums are put right first, so that damage reaches what is behind them.

#include <ogg/ogg.h>

#include "fuzz/handler_fuzzing.h"
#include "ogg/ogg_reading.h"

namespace {

// Of every page whose segments lie within the file.
void MendChecksums(std::vector<std::uint8_t>& file)
{
    constexpr std::size_t kHeader = 27;
    for (std::size_t at = 0; at + kHeader < file.size(); ++at) {
        if (!vex::HasTextAt(file, at, "OggS"))
            continue;
        const std::size_t header = kHeader + file[at + 26];
        std::size_t body = 0;
        for (std::size_t i = at + kHeader; i < at + header && i < file.size(); ++i)
            body += file[i];
        if (file.size() - at < header + body)
            continue;
        ogg_page page{file.data() + at, static_cast<long>(header), file.data() + at + header, static_cast<long>(body)};
        ogg_page_checksum_set(&page);
        at += header + body - 1;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::vector<std::uint8_t> file(data, data + size);
    MendChecksums(file);
    return vex::fuzz::FuzzHandler<vex::test::GOggReading>(file.data(), file.size());
}
