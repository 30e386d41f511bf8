#pragma once

#include "zelstore/ieventstore.h"

namespace ZEL {

// What IRowFilterMaker::MakeRowFilter does.
HRESULT MakeRowFilter(IStringValue* document, IRowFilter** filter) noexcept;

}  // namespace ZEL
