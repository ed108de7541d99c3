#include "formats/ogg/ogg_pin_names.h"

#include "platform/guids.h"
#include "platform/text.h"

namespace vex {

WString OggPinName(GOggPinNames names, REFGUID majorType, std::size_t stream, const std::string& language)
{
    std::string name = "Stream";
    if (majorType == MEDIATYPE_Video)
        name = "Video";
    else if (majorType == MEDIATYPE_Audio)
        name = "Audio";
    else if (majorType == MEDIATYPE_Text)
        name = "Subtitle";
    else if (majorType == MEDIATYPE_Stream)
        name = "GStream";
    if (!language.empty() && majorType != MEDIATYPE_Video)
        name += " / " + language;
    else if (names == GOggPinNames::First)
        name += " " + std::to_string(stream);
    return WideFromUtf8(name);
}

}  // namespace vex
