// Which streams of an ASF file are played.
#pragma once

#include "formats/asf/asf_header.h"

namespace vex {

// Marks one audio stream for each language and one video stream: those of the highest bit rate.
void SelectAsfStreams(GAsfHeader& header);

}  // namespace vex
