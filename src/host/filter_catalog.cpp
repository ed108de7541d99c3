#include "host/filter_catalog.h"

#include <algorithm>

#include "media/media_type_text.h"
#include "module/filter_infos.h"
#include "platform/text.h"

namespace vex {

namespace {

char Lower(char letter) { return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter; }

bool SameText(std::string_view a, std::string_view b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) { return Lower(x) == Lower(y); });
}

template <class Fits>
const GFilterInfo* FindFirst(Fits&& fits)
{
    const auto all = FilterInfos();
    const auto found = std::ranges::find_if(all, [&](const GFilterInfo* info) { return fits(*info); });
    return found == all.end() ? nullptr : *found;
}

}  // namespace

std::span<const GFilterInfo* const> FilterCatalog() { return FilterInfos(); }

std::string DisplayName(const GFilterInfo& info) { return Utf8FromWide(info.displayName); }

std::string ClsidText(REFCLSID clsid) { return GuidText(clsid); }

const GFilterInfo* FindByName(std::string_view name)
{
    return FindFirst([&](const GFilterInfo& info) {
        const std::string braced = ClsidText(info.clsid);
        const std::string_view bare = std::string_view(braced).substr(1, braced.size() - 2);
        return SameText(name, info.shortName) || SameText(name, DisplayName(info)) || SameText(name, braced) ||
               SameText(name, bare);
    });
}

const GFilterInfo* FindByContent(std::span<const std::uint8_t> start)
{
    return FindFirst([&](const GFilterInfo& info) { return info.recognises && info.recognises(start); });
}

const GFilterInfo* FindByUrl(std::string_view path)
{
    return FindFirst([&](const GFilterInfo& info) { return info.takesUrl && info.takesUrl(path); });
}

const GFilterInfo* FindByExtension(std::string_view path)
{
    const std::size_t dot = path.find_last_of('.');
    if (dot == std::string_view::npos || path.find_first_of("/\\", dot) != std::string_view::npos)
        return nullptr;
    std::string wanted = " ";
    for (const char letter : path.substr(dot + 1))
        wanted += Lower(letter);
    wanted += ' ';
    if (wanted.size() == 2)
        return nullptr;
    return FindFirst([&](const GFilterInfo& info) {
        return std::string_view(info.extensions).find(wanted) != std::string_view::npos;
    });
}

}  // namespace vex
