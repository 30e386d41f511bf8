#include "common/thismachine.h"

#include "common/hostservices.h"

namespace wm {

IMachineDescription& Machine() noexcept {
    IMachineDescription* const injected = InjectedMachine();
    return injected != nullptr ? *injected : ThisMachine();
}

}  // namespace wm
