#include "host/module.h"

#include "platform/text.h"

namespace vex {

GModule LoadModule(WStringView path, std::string& error)
{
    auto library = std::make_shared<GDynamicLibrary>();
    if (!library->Open(path)) {
        error = library->LastError();
        return {};
    }
    GModule module;
    module.getClassObject = library->Symbol<GModule::GGetClassObject>("DllGetClassObject");
    module.canUnloadNow = library->Symbol<GModule::GCanUnloadNow>("DllCanUnloadNow");
    if (!module.IsUsable()) {
        error = Utf8FromWide(path) + ": not a COM server";
        return {};
    }
    module.library = std::move(library);
    return module;
}

}  // namespace vex
