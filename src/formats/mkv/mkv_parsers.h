// From elements to records. Every parser walks all children of its element once and passes over those it does not know.
#pragma once

#include <vector>

#include "formats/mkv/mkv_element.h"
#include "formats/mkv/mkv_records.h"

namespace vex {

// All give 0; 1 when the element has no child; E_FAIL when a value could not be read: it keeps its default, the rest of
// the element is read all the same, and the place is in the reader's damage log. Lists are appended to.
HRESULT ParseMkvHeader(GMkvElement& element, GMkvHeader& header);
HRESULT ParseMkvInfo(GMkvElement& element, GMkvInfo& info);
HRESULT ParseMkvSeekHead(GMkvElement& element, GMkvSeekHead& seekHead);
HRESULT ParseMkvTracks(GMkvElement& element, std::vector<GMkvTrack>& tracks);
HRESULT ParseMkvCues(GMkvElement& element, std::vector<GMkvCues>& cues);
HRESULT ParseMkvChapters(GMkvElement& element, std::vector<GMkvEdition>& editions);
HRESULT ParseMkvAttachments(GMkvElement& element, std::vector<GMkvAttachment>& attachments);

}  // namespace vex
