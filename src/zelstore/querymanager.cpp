#include "zelstore/querymanager.h"

namespace ZEL {

QueryModule& Queries() noexcept {
    static QueryModule module;
    return module;
}

}  // namespace ZEL
