#pragma once

#include "zelstore/ieventstore.h"

namespace bench {

// Counts the results of one query; lives on the stack.
class CountingCallback final : public ZEL::IQueryCallback {
public:
    ZEL::TobResult QueryInterface(const ZEL::GUID&, void**) override {
        return ZEL::TOBERR_NO_INTERFACE;
    }
    std::int64_t AddRef() override { return 2; }
    std::int64_t Release() override { return 1; }
    ZEL::HRESULT OnQueryResults(ZEL::HRESULT, ZEL::IValueCollection* results, bool, bool,
                                ZEL::IStringValue*, std::int32_t) override {
        if (results != nullptr)
            rows += results->Count();
        return ZEL::hr::ok;
    }
    std::size_t rows = 0;
};

}  // namespace bench
