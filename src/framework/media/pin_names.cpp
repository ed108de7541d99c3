#include "framework/media/pin_names.h"

#include <string>

#include "platform/text.h"

namespace vex {

namespace {

const char* KindName(GPinKind kind)
{
    switch (kind) {
    case GPinKind::Video:
        return "Video";
    case GPinKind::Audio:
        return "Audio";
    case GPinKind::Subtitle:
        return "Subtitle";
    case GPinKind::Other:
        break;
    }
    return "Stream";
}

}  // namespace

WString AviPinName(GPinKind kind, std::uint32_t stream, std::string_view language)
{
    std::string name = KindName(kind);
    if (kind != GPinKind::Video) {
        name += stream < 10 ? " 0" : " ";
        name += std::to_string(stream);
        if (!language.empty())
            name.append("/ ").append(language);
    }
    return WideFromUtf8(name);
}

}  // namespace vex
