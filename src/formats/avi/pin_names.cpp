#include "formats/avi/pin_names.h"

#include <string>

#include "platform/guids.h"
#include "platform/text.h"

namespace vex {

WString AviPinName(REFGUID majorType, std::size_t stream)
{
    if (majorType == MEDIATYPE_Video)
        return VEX_W("Video");
    std::string name = "Stream";
    if (majorType == MEDIATYPE_Audio)
        name = "Audio";
    else if (majorType == MEDIATYPE_Text)
        name = "Subtitle";
    name += stream < 10 ? " 0" : " ";
    return WideFromUtf8(name + std::to_string(stream));
}

}  // namespace vex
