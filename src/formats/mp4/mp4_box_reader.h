// Reads boxes from a byte source into a tree.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

#include "formats/mp4/mp4_box.h"
#include "framework/contract/damage_log.h"
#include "io/file_base.h"

namespace vex {

// One source, one thread. All referenced objects outlive the reader. Besides the 1 MiB boxes of the tree, it takes
// memory for as many payload bytes as the source holds, each counted once, so that boxes which overlap cost nothing.
class GMp4BoxReader {
public:
    // Bytes of one payload. The sizes of 32 million samples take as much: 370 hours of 24 frames a second.
    static constexpr std::uint32_t kMaxPayload = 128u << 20;

    GMp4BoxReader(GFileBase& byteSource, GMp4BoxTree& boxTree, GDamageLog& damageLog,
                  const std::atomic<bool>& interruptFlag);

    // The boxes from `start` to the end of the source become children of the root. False when there is none.
    bool ReadRoot(std::uint64_t start);
    // The flag was set before all was read.
    bool Interrupted() const { return interrupted.load(std::memory_order_acquire); }

private:
    std::optional<Mp4Box> ReadBoxHeader();
    Mp4Box* ReadBox(Mp4Box& father, int depth);
    bool ReadContent(Mp4Box& box, int depth);
    bool ReadContainerChildren(Mp4Box& box, std::uint64_t start, int depth);
    bool GoToNext(const Mp4Box& box, const Mp4Box& father);
    bool ReadPayload(Mp4Box& box);
    bool HidesMovieHeader(const Mp4Box& box);

    GFileBase& source;
    GMp4BoxTree& tree;
    GDamageLog& damage;
    const std::atomic<bool>& interrupted;
    const std::uint64_t sourceSize;  // bytes
    std::uint64_t budget;            // payload bytes that may still be kept
};

}  // namespace vex
