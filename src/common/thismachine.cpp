#include "common/thismachine.h"

#include "common/hostservices.h"

// Queries may be asked as if on another machine (DescribedMachine). All code above this one asks
// Machine and so need not know of it.

namespace wm {

IMachineDescription& Machine() noexcept {
    IMachineDescription* const injected = InjectedMachine();
    return injected != nullptr ? *injected : ThisMachine();
}

}  // namespace wm
