// A stream of commands for the program that plays the file: no pin takes it.
#pragma once

#include "formats/ogg/ogg_stream.h"

namespace vex {

class GOgg2GStream final : public GOGG2ReadStream {
public:
    explicit GOgg2GStream(std::uint32_t serial) : GOGG2ReadStream(GOggKind::GStream, serial) {}

    bool HeaderIn(const GOggPacket& packet) override;
    std::uint32_t BuildMediaType(CMediaType& type) const override;

protected:
    bool CountsBack() const override { return false; }
};

}  // namespace vex
