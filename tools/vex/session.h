// One media file opened in a host graph.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/filter_catalog.h"
#include "host/host_graph.h"
#include "platform/console.h"
#include "tools/vex/report.h"
#include "tools/vex/settings.h"

namespace vex {

// Damage that the filter met so far.
struct GDamage {
    std::uint64_t places = 0;
    std::uint64_t bytes = 0;
    std::string first;  // empty when there is none
};

class GSession {
public:
    // Finds the filter, loads the file and sets the options. Null, with `problem` filled, when that cannot be done.
    static std::unique_ptr<GSession> Open(const GSettings& settings, const std::string& file, GProblem& problem);

    GHostGraph& Graph() { return graph; }
    const std::string& File() const { return file; }
    const GFilterInfo& Filter() const { return *filter; }

    // Waits while the filter still builds an index: where a seek lands, and which damage is known, would depend on it.
    void WaitForIndex() const;
    // Connects the pin of the settings, or all, and moves to the start time of the settings.
    bool Connect(const GSettings& settings, const GSinkOptions& options, GProblem& problem);
    // Runs the graph to its end. False when it failed or hung, with `problem` filled; the pins that still ended are
    // sound.
    bool Play(GProblem& problem, const std::function<void()>& tick = {});

    std::string PinName(std::size_t pin) const;
    std::string PinLanguage(std::size_t pin) const;
    // Facts of the file (pin -1) or of a pin, as a JSON object.
    GJson Properties(LONG pin) const;
    GDamage Damage() const;
    IVexInspect* Inspect() const { return inspect.Get(); }

    // The file's name without directory and extension, to make other names of, UTF-8.
    std::string BaseName() const;
    // The keys that every result for a file begins with: file, container, filter, duration, incomplete.
    GJson Head() const;
    // kDamaged, after a complaint, when there is damage or a pin broke the rules of delivery, else kSound.
    int Verdict(const GDamage& damage);

private:
    GSession(GModule module, const GFilterInfo& entry, std::string path)
        : graph(std::move(module)), filter(&entry), file(std::move(path))
    {
    }

    bool Load(GProblem& problem);
    bool SetOptions(const GSettings& settings, GProblem& problem);

    std::unique_ptr<GInterruptWatch> interrupts;  // of a download; until the graph is gone and its file with it
    GHostGraph graph;
    const GFilterInfo* const filter;
    const std::string file;
    GComPtr<IVexInspect> inspect;  // may be empty
    std::string notWhole;          // why the file is not; empty when it is
};

// The module of the settings: the one in a file, or the one that is linked in. Unusable, with `problem` filled, when
// the file cannot be loaded.
GModule ChooseModule(const GSettings& settings, GProblem& problem);

// Says why a command that takes one file did nothing, as an error in JSON too when that was asked for. kUnusable.
int Refuse(const GSettings& settings, const GProblem& problem);

GJson DamageJson(const GDamage& damage);
// "2 places, 120 bytes passed over; first: ..." or an empty text.
std::string DamageText(const GDamage& damage);

}  // namespace vex
