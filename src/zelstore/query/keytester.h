#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "common/result.h"
#include "zelstore/query/queryfilter.h"
#include "zelstore/query/subqueryterms.h"

namespace ZEL {

// Sub-queries asked of primary keys that come by, and not of a store's rows. For one thread.
class KeyTester {
public:
    // `document` is UTF-8. 0x80070057 for one without sub-queries or with a receive_time; else as
    // RunQuery. Throws what it cannot parse, and for want of memory.
    HRESULT Read(const std::string& document);
    // The next sub-query, one of primary rows.
    void Add(const SubQueryTerms& terms);

    // Whether any sub-query finds the key. Throws what a pattern throws.
    bool Passes(std::string_view key);
    // The same of one of them, by the order in which they came.
    bool Passes(std::size_t part, std::string_view key);

private:
    struct Part {
        std::string startKey;  // empty: from the first event on
        std::string endTime;   // empty: without an end
        QueryFilter filter;
    };

    static bool Fits(Part& part, std::string_view key, const KeyFields& fields);

    std::vector<Part> parts_;
};

}  // namespace ZEL
