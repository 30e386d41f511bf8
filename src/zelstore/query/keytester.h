#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "common/result.h"
#include "zelstore/query/queryfilter.h"
#include "zelstore/schema/event.h"

namespace ZEL {

// A document asked of primary keys that come by, and not of a store's rows. For one thread.
class KeyTester {
public:
    // `document` is UTF-8. 0x80070057 for one without sub-queries or with a receive_time; else as
    // RunQuery. Throws what it cannot parse, and for want of memory.
    HRESULT Read(const std::string& document);
    // Whether any sub-query finds the key. Throws what a pattern throws.
    bool Passes(std::string_view key);

private:
    struct Part {
        std::string startKey;  // empty: from the first event on
        std::string endTime;   // empty: without an end
        QueryFilter filter;
    };

    HRESULT Add(Schema::Event& subQuery);
    static bool Fits(Part& part, std::string_view key, const KeyFields& fields);

    std::vector<Part> parts_;
};

}  // namespace ZEL
