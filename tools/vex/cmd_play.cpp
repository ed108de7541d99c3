#include <algorithm>
#include <cstdio>

#include "platform/console.h"
#include "tools/vex/commands.h"
#include "tools/vex/session.h"
#include "tools/vex/time_text.h"

namespace vex {

namespace {

// The furthest time that any pin has reached, from the start of the file.
REFERENCE_TIME Position(GHostGraph& graph)
{
    REFERENCE_TIME position = 0;
    for (std::size_t pin = 0; pin < graph.PinCount(); ++pin) {
        if (!graph.Sink(pin))
            continue;
        const GSinkReport report = graph.Sink(pin)->Report();
        if (report.lastStop != kNoTime && report.segmentStart != kNoTime)
            position = std::max(position, report.segmentStart + report.lastStop);
    }
    return position;
}

void ShowProgress(GHostGraph& graph, REFERENCE_TIME duration)
{
    const REFERENCE_TIME position = Position(graph);
    std::fprintf(stderr, "\r%s", TimeText(position).c_str());
    if (duration > 0)
        std::fprintf(
            stderr, " of %s (%d %%)", TimeText(duration).c_str(),
            static_cast<int>(std::min<REFERENCE_TIME>(100, position / std::max<REFERENCE_TIME>(1, duration / 100))));
    std::fflush(stderr);
}

GJson PinJson(GSession& session, std::size_t pin)
{
    const GSinkReport report = session.Graph().Sink(pin)->Report();
    GJson json;
    json["index"] = pin;
    json["name"] = session.PinName(pin);
    json["samples"] = report.samples;
    json["bytes"] = report.bytes;
    json["firstStart"] = JsonTime(report.firstStart);
    json["lastStop"] = JsonTime(report.lastStop);
    json["ended"] = report.endOfStream;
    return json;
}

std::string PinText(const GJson& pin)
{
    const auto time = [](const GJson& value) {
        return TimeText(value.is_null() ? kNoTime : value.get<std::int64_t>());
    };
    char text[256];
    std::snprintf(text, sizeof text, "pin %llu %-20s %9llu samples %14llu bytes  %s to %s%s\n",
                  pin["index"].get<unsigned long long>(), pin["name"].get<std::string>().c_str(),
                  pin["samples"].get<unsigned long long>(), pin["bytes"].get<unsigned long long>(),
                  time(pin["firstStart"]).c_str(), time(pin["lastStop"]).c_str(),
                  pin["ended"].get<bool>() ? "" : "  (no end)");
    return text;
}

}  // namespace

int RunPlay(const GSettings& settings)
{
    GProblem problem;
    const auto session = GSession::Open(settings, settings.files.front(), problem);
    if (!session || !session->Connect(settings, {}, problem)) {
        Complain(problem);
        if (settings.json)
            PrintDocument(FailureDocument(settings.files.front(), problem));
        return kUnusable;
    }

    GHostGraph& graph = session->Graph();
    const bool terminal = StandardErrorIsTerminal();
    std::function<void()> tick;
    if (terminal)
        tick = [&, duration = graph.Duration().value_or(0)] { ShowProgress(graph, duration); };
    const bool complete = session->Play(problem, tick);
    if (terminal)
        std::fputs("\r\x1B[K", stderr);

    GJson json = session->Head();
    json["pins"] = GJson::array();
    for (std::size_t pin = 0; pin < graph.PinCount(); ++pin)
        if (graph.Sink(pin))
            json["pins"].push_back(PinJson(*session, pin));
    const GDamage damage = session->Damage();
    json["damage"] = DamageJson(damage);
    if (!complete) {
        Complain(problem);
        json["error"] = ProblemJson(problem);
    }
    if (settings.json) {
        PrintDocument(FileDocument(json));
    } else {
        for (const GJson& pin : json["pins"])
            Print(PinText(pin));
        if (damage.places > 0)
            Print("damage: " + DamageText(damage) + "\n");
    }
    return std::max(session->Verdict(), complete ? kSound : kDamaged);
}

}  // namespace vex
