#include "framework/contract/read_handler.h"

#include "platform/trace.h"

namespace vex {

GStatus GReadHandler::Open(const char* newPath)
{
    Close();
    try {
        path = newPath;
        if (source && source->Open(newPath) == 0) {
            Trace("%s", openFailure);
            const GError error = source->OpenError();
            Close();
            return error;
        }
        GStatus opened = OpenContainer();
        if (!opened.Ok())
            Close();
        return opened;
    } catch (...) {
        Close();
        throw;
    }
}

void GReadHandler::Close()
{
    CloseContainer();
    damage.Clear();
    path.clear();
    if (source)
        source->Close();
}

std::unique_ptr<GFileBase> GReadHandler::OpenAgain() const
{
    std::unique_ptr<GFileBase> again = source ? source->NewInstance() : nullptr;
    if (again && again->Open(path.c_str()) == 0)
        again.reset();
    return again;
}

}  // namespace vex
