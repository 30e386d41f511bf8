#pragma once

#include <cpprest/json.h>

#include <cstdint>
#include <string>

#include "connection/fleetuse.h"

namespace zel {

// How a document that was checked is asked so that no more events are printed than wanted, and that
// what the limit cuts off is known. The store's own limit counts every row, also those that are the
// same event once more, and may be passed by one; so it is asked for one row more than is wanted,
// and again for more rows where too few of them were new.
//
// Rows by time of receipt are no events but receipts: each counts. They are asked for as many as
// are wanted and no more, so that the position of the last one is that of the last one printed.
struct QueryPlan {
    // As it was checked; FirstRows and TextFor change nothing of it.
    web::json::value document;
    std::int64_t limit = -1;  // most to print; negative: all
    // Whether any part of the question walks receive-time rows.
    bool byReceive = false;
    bool joinsEnrichments = false;
    // Whether what is wanted is only known once a row has been seen, so that the store can't count.
    bool asksForAll = false;
    // Whether a fleet is asked, which gives each event once, in one order of time over all hosts.
    bool ofFleet = false;
    IFleetCallback::Order rowOrder = {};  // which a fleet's rows come in

    // How many rows to ask for first; negative: all.
    std::int64_t FirstRows() const;
    // The document that asks for so many rows. A number beyond the store's 32 bits with a sign asks
    // for all.
    std::string TextFor(std::int64_t rows) const;
};
// Only for a document that CheckDocument found no error in: members are taken to be there and of
// their types, and it throws where they are not.
QueryPlan PlanQuery(const web::json::value& document);

}  // namespace zel
