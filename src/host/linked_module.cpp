// Apart from the rest, so that only programs that ask for the linked functions need them.
#include "host/module.h"
#include "platform/exports.h"

namespace vex {

GModule LinkedModule() { return {DllGetClassObject, DllCanUnloadNow, nullptr}; }

}  // namespace vex
