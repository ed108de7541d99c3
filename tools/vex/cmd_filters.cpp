#include <cstdio>

#include "tools/vex/commands.h"
#include "tools/vex/session.h"

namespace vex {

namespace {

GJson Words(std::string_view text)
{
    GJson words = GJson::array();
    while (!text.empty()) {
        const std::size_t blank = std::min(text.find(' '), text.size());
        if (blank > 0)
            words.push_back(text.substr(0, blank));
        text.remove_prefix(std::min(blank + 1, text.size()));
    }
    return words;
}

}  // namespace

int RunFilters(const GSettings& settings)
{
    GProblem problem;
    const GModule module = ChooseModule(settings, problem);
    if (!module.IsUsable()) {
        Complain(problem);
        if (settings.json)
            PrintDocument({{"schema", kJsonSchema}, {"error", ProblemJson(problem)}});
        return kUnusable;
    }
    GJson filters = GJson::array();
    std::string text;
    for (const GFilterInfo* const entry : FilterCatalog()) {
        const bool available = SUCCEEDED(GHostGraph(module).Create(entry->clsid));
        const std::string clsid = ClsidText(entry->clsid);
        filters.push_back({{"name", DisplayName(*entry)},
                           {"short", entry->shortName},
                           {"clsid", clsid},
                           {"formats", entry->formats},
                           {"extensions", Words(entry->extensions)},
                           {"available", available}});
        char line[256];
        std::snprintf(line, sizeof line, "%-6s %-27s %s  %s%s\n", entry->shortName, DisplayName(*entry).c_str(),
                      clsid.c_str(), entry->formats, available ? "" : "  (not in this build)");
        text += line;
    }
    if (settings.json)
        PrintDocument({{"schema", kJsonSchema}, {"filters", filters}});
    else
        Print(text);
    return kSound;
}

}  // namespace vex
