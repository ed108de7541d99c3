// The tree of boxes ("atoms") of an MP4 or QuickTime file (ISO/IEC 14496-12, clause 4.2).
#pragma once

#include <cstdint>
#include <deque>
#include <string_view>
#include <vector>

#include "io/bytes.h"
#include "io/fourcc.h"

namespace vex {

// One box. The tree owns it; links are null where there is nothing.
struct Mp4Box {
    std::uint64_t pos = 0;           // of the first byte of the header, in the source that it was read from
    std::uint64_t size = 0;          // bytes, with the header; as stored, so it may reach beyond the file
    std::uint32_t type = 0;          // compare with FourCC("moov")
    std::uint32_t shortSize = 0;     // the 32-bit field; 1: a 64-bit size follows
    std::vector<std::uint8_t> data;  // the payload of a box that is decoded; empty for all others

    Mp4Box* father = nullptr;
    Mp4Box* firstChild = nullptr;
    Mp4Box* lastChild = nullptr;
    Mp4Box* nextSibling = nullptr;  // in file order

    unsigned HeaderLength() const { return 8u + (shortSize == 1 ? 8u : 0u) + (type == FourCC("uuid") ? 16u : 0u); }
    // The first position behind the box; the largest number there is when the sum does not fit.
    std::uint64_t End() const { return size > UINT64_MAX - pos ? UINT64_MAX : pos + size; }
};

// All boxes of a file. Pointers to boxes stay valid as long as the tree. Paths, as in "/moov/trak[2]/mdia":
//  - tokens are separated by "/", a leading one starts at the root; "." stays, ".." goes to the father;
//  - four characters take the first child of that type, "abcd[n]" the n-th from 0, "[n]" the n-th of any type;
//  - everything else, and a box that is not there, gives null.
class GMp4BoxTree {
public:
    // Boxes of one file. A file of fragments has eight for each, two or three of which lie at the top; ten hours of it
    // with two fragments a second have 200 000 there. A million takes about 90 MB.
    static constexpr std::size_t kMaxBoxes = 1u << 20;

    GMp4BoxTree() { root.type = FourCC("root"), root.shortSize = 1; }
    GMp4BoxTree(const GMp4BoxTree&) = delete;
    GMp4BoxTree& operator=(const GMp4BoxTree&) = delete;

    Mp4Box& Root() { return root; }
    // A box that is not linked yet; null when there are too many.
    Mp4Box* NewBox();
    static void Append(Mp4Box& father, Mp4Box& child);

    Mp4Box* GetBox(std::string_view path) { return GetBox(root, path); }
    static Mp4Box* GetBox(Mp4Box& from, std::string_view path);
    // How many siblings from the box at `path` on have its type; 0 when there is none.
    std::size_t CountBox(std::string_view path);

private:
    Mp4Box root;
    std::deque<Mp4Box> boxes;
};

}  // namespace vex
