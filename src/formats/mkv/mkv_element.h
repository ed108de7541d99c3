// One element of the file as a cursor: where it begins, how long it is, and how to get from it to others.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "formats/mkv/mkv_ids.h"
#include "formats/mkv/mkv_reader.h"
#include "formats/mkv/mkv_values.h"

namespace vex {

// Where a Segment's SeekHeads say its children are: for each level-1 ID the place named first.
class GMkvSeekIndex {
public:
    // `position` is absolute; IDs of other levels and negative positions are ignored, later entries for an ID too.
    void Add(std::uint32_t id, std::int64_t position);
    std::optional<std::int64_t> PositionOf(std::uint32_t id) const;
    void Clear() { positions = {}; }

private:
    std::array<std::optional<std::int64_t>, mkv_id::kLevel1.size()> positions;
};

// What a bounded move came to. Searching: damage is being searched past, ask again to go on.
enum class GMkvStep : std::uint8_t { Moved, End, Searching };

enum class GMkvScan : std::uint8_t { No, Yes };    // whether siblings are walked when no index has the element
enum class GMkvKind : std::uint8_t { Any, Same };  // whether a sibling must be of the same kind

// A value: a copy is an independent cursor on the same element. A cursor points to its parent, which must outlive it
// and stay where it is (so none can be taken from a temporary), and shares its reader's position with all others:
// whoever moves one reads with Seek first. Moving never goes backwards except through the index, so every walk ends.
//
// An element of unknown size reaches to the end of the file. A Cluster of that kind is cut to its real end as soon as a
// walk over its children meets the next level-1 element, and NextCluster looks for that end.
class GMkvElement {
public:
    // The root: ID 0, the whole file, no parent.
    explicit GMkvElement(GMkvReader& source);
    // A child of `newParent` whose header is yet to be read.
    explicit GMkvElement(GMkvElement* newParent) : parent(newParent), reader(newParent->reader) {}
    // The named way to keep the element at which reading will start.
    static GMkvElement CopyOf(const GMkvElement& element) { return element; }

    // Reads ID and size at the reader's position, and leaves it at the data. 0, or E_FAIL.
    HRESULT ReadHeader();

    // The first child, or the one that Find gives for `id` from there. In a Segment an unreadable header is searched
    // past.
    std::optional<GMkvElement> FirstChild(std::uint32_t childId = 0, GMkvScan scan = GMkvScan::No) &;

    // Moves to the element of that ID: for a child of a Segment to where the index says, else by walking from here.
    // Whether this cursor now stands on one; an index that lies gives false.
    bool Find(std::uint32_t wanted, GMkvScan scan);

    // Moves to the next element of the same parent; false at the end of the parent or of the file, the cursor then
    // being where the walk ended. With Same it goes on to one of the same ID (the block kinds are one), but not past a
    // level-1 element of another ID. In a Segment an unreadable header is searched past, to the next level-1 ID.
    bool NextSibling(GMkvKind kind = GMkvKind::Any);

    // In a Segment: to the next Cluster, past whatever cannot be read.
    bool NextCluster();
    // The same in pieces: gives up for now after about `budget` bytes, so that a thread can be stopped in a ruined
    // file.
    GMkvStep StepToCluster(std::uint64_t budget);

    // Absolute position behind the data as the header claims it; never overflows.
    std::int64_t End() const;
    // Bytes of data that really lie inside all the parents and the file.
    std::uint64_t Available() const;
    bool IsChildOf(std::uint32_t parentId) const { return parent != nullptr && parent->id.value == parentId; }

    GMkvElement* parent = nullptr;             // not owned; null for the root
    GMkvReader* reader;                        // not owned
    const GMkvSeekIndex* seekIndex = nullptr;  // of a Segment; not owned
    CID id;
    CLength size;                // bytes of data
    std::int64_t headerPos = 0;  // absolute, first byte of the ID
    std::int64_t dataPos = 0;    // absolute

private:
    enum class GStep : std::uint8_t { Moved, End, Damaged };
    enum class GWanted : std::uint8_t { Level1, Cluster };

    GStep StepOver();
    bool EndsParent() const;
    void EndParentHere();
    void FindRealEnd();
    GMkvStep SearchFor(GWanted wanted, std::uint64_t budget);
    void ReportUnreadable() const;

    static constexpr std::int64_t kNotSearching = -1;
    std::int64_t searchPos = kNotSearching;  // absolute; where a search in pieces goes on
};

}  // namespace vex
