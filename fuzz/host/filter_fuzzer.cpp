// A whole filter, threads and all, over hostile files: loaded, run, seeked, blocked, stopped and released through the
// host. The last byte of an input is not part of the file: it says how the sinks behave and where to seek. The file's
// first bytes choose the filter.

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>

#include "host/filter_catalog.h"
#include "host/host_graph.h"
#include "platform/text.h"
#include "support/temp_file.h"

namespace {

using namespace vex;

// Longer than any input of this size takes, even under sanitizers on a busy machine.
constexpr std::chrono::seconds kStall{15};

void Finding(const char* what)
{
    std::fprintf(stderr, "filter_fuzzer: %s\n", what);
    std::abort();
}

void CheckSinks(GHostGraph& graph)
{
    for (std::size_t pin = 0; pin < graph.PinCount(); ++pin)
        if (graph.Sink(pin))
            for (const std::string& violation : graph.Sink(pin)->Report().violations)
                Finding(violation.c_str());
}

void Inspect(GHostGraph& graph)
{
    const auto inspect = graph.Control<IVexInspect>(IID_IVexInspect);
    if (!inspect)
        return;
    ULONG count = 0;
    inspect->GetAttachmentCount(&count);
    BYTE bytes[16];
    for (ULONG i = 0; i < count; ++i)
        inspect->ReadAttachment(i, 0, bytes, sizeof bytes);
    for (LONG pin = -1; pin < static_cast<LONG>(graph.PinCount()); ++pin) {
        inspect->GetPropertyCount(pin, &count);
        for (ULONG i = 0; i < count; ++i) {
            BSTR name = nullptr;
            BSTR value = nullptr;
            VexPropertyType type = VexProperty_Text;
            if (SUCCEEDED(inspect->GetProperty(pin, i, &name, &value, &type))) {
                TakeText(name);
                TakeText(value);
            }
        }
    }
}

void Play(GHostGraph& graph, std::uint8_t control)
{
    const REFERENCE_TIME duration = graph.Duration().value_or(0);
    if (control & 1)
        graph.Seek(duration / 2);
    if (FAILED(graph.Run()))
        return;
    if (control & 2)
        for (std::size_t pin = 0; pin < graph.PinCount(); ++pin)
            if (graph.Sink(pin))
                graph.Sink(pin)->SetBehaviour(static_cast<GSinkBehaviour>((control >> 2) & 3), pin);
    for (int eighth = control >> 5; eighth > 0; eighth /= 2)
        graph.Seek(duration / 8 * eighth);
    const bool blocked = (control & 2) && ((control >> 2) & 3) == static_cast<int>(GSinkBehaviour::Hold);
    if (!blocked && graph.WaitForEnd(kStall) == GEnd::Stalled)
        Finding("a filter never came to its end");
    graph.Stop();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const std::uint8_t control = data[--size];
    const std::span<const std::uint8_t> bytes(data, size);
    const GFilterInfo* entry = FindByContent(bytes);
    {
        const test::GTempFile file(bytes);
        GHostGraph graph(LinkedModule());
        if (!entry || FAILED(graph.Create(entry->clsid)) || FAILED(graph.Load(WideFromUtf8(file.Path()))))
            return 0;
        graph.ConnectAll();
        Inspect(graph);
        Play(graph, control);
        CheckSinks(graph);
    }
    if (LinkedModule().canUnloadNow() != S_OK)
        Finding("an object outlived its filter");
    return 0;
}
