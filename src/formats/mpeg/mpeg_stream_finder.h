// Finds the elementary streams at the start of a file, and when each of them starts.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "formats/mpeg/mpeg_navigation.h"
#include "formats/mpeg/mpeg_read_stream.h"
#include "formats/mpeg/mpeg_walker.h"

namespace vex {

// Thread that loads. `interrupt` ends the scan.
class GMpegStreamFinder {
public:
    GMpegStreamFinder(GScanWindow& scanWindow, const GMpegLayout& fileLayout, const std::atomic<bool>& interrupt)
        : window(scanWindow), layout(fileLayout), interrupted(interrupt)
    {
    }

    // Reads the start of the file: at most 55770 transport packets, or 700 units of a program stream.
    void Scan(GDamageLog& damage);

    std::vector<GMpeg2StreamPtr> streams;  // in the order of discovery
    GMpegNavigation navigation;
    // Of what was met, for an error: "H.265, private data", "stream 0xE0".
    std::string Met() const;
    bool WasInterrupted() const { return interrupted.load(std::memory_order_acquire); }

private:
    struct GFirst {
        GPtsClock clock;
        std::optional<std::int64_t> smallest;
    };
    // The start of a PES packet whose codec is not known yet.
    struct GPending {
        std::vector<std::uint8_t> bytes;
        std::size_t nextOffer = 0;  // bytes
    };

    void ReadTables();
    void ScanTransport();
    void TakeTransport(const GTransportPacket& packet);
    void ScanProgram();
    void SeeNavigation(GBytes packet, std::int64_t position);
    void TakeProgram(const GProgramUnit& unit, GBytes bytes);
    bool HasPictureAndSound() const;

    GMpeg2ReadStream* Find(std::uint32_t number) const;
    void SeeTime(std::uint32_t number, const GPesHeader& header);
    bool Offer(std::uint32_t number, GBytes bytes, const GProgramEntry* entry, bool last, bool& cut);
    bool Add(GMpegParse&& parsed, std::uint32_t number, const GProgramEntry* entry);

    GScanWindow& window;
    const GMpegLayout& layout;
    const std::atomic<bool>& interrupted;
    GProgramTables tables;
    std::map<std::uint32_t, GFirst> firsts;  // by stream number
    std::map<std::uint32_t, GPending> pending;
    bool allFound = false;   // of a program stream: only times are looked for now
    bool laterPart = false;  // a part of a DVD behind the first one was met
};

}  // namespace vex
