#include "fleet/sending/storepast.h"

#include "zelstore/keys/receivekey.h"

namespace zel::fleet {

std::string StorePast::Settled() {
    return ZEL::MakeReceiveKey("9999-12-31T23:59:59.999Z", UINT32_MAX);
}

}  // namespace zel::fleet
