// How each type of box is read.
#pragma once

#include <cstdint>

namespace vex {

enum class GMp4BoxKind : std::uint8_t {
    Place,               // kept for its place in the tree; its content is passed over
    Container,           // boxes only
    Leaf,                // its payload is kept
    SampleDescriptions,  // a full box with a count, then the sample entries
    SoundEntry,          // payload, then boxes
    VideoEntry,
    Free,  // room without content, where some writers hide a movie header
    CompressedHeader,
};

// Place for a type that is not known.
GMp4BoxKind KindOfBox(std::uint32_t type);

}  // namespace vex
