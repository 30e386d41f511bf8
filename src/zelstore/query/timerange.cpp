#include "zelstore/query/timerange.h"

#include <new>

#include "zelstore/schema/timetext.h"

// From operators to a range. A walk starts at one key and ends at one time, both inclusive. So
// whatever a document says of begin_time and end_time becomes a first and a last time wanted: a
// strict limit moves by a millisecond, and an upper limit on begin_time becomes the end, with the
// lowest time there is as the start.
//
// A begin_time with an upper limit and an end_time together: the end_time as it was is replaced.

namespace ZEL {

using namespace Schema;

namespace {

// A time that was rewritten carries no operator, so it is not rewritten again.
HRESULT Shifted(const Text& text, std::int32_t milliseconds, DatePair* pair) {
    DatePair shifted;
    const HRESULT result = AdjustTimestamp(text, milliseconds, &shifted.value);
    if (Succeeded(result))
        *pair = std::move(shifted);
    return result;
}

HRESULT EndBefore(Event& subQuery, const Text& text, std::int32_t milliseconds) {
    DatePair end;
    const HRESULT result = Shifted(text, milliseconds, &end);
    if (Succeeded(result))
        subQuery.SetEndTime(end);
    return result;
}

// An upper limit given as begin_time: it becomes the end, and the start lies at the lowest time.
HRESULT BeginAsEnd(Event& subQuery, std::int32_t milliseconds) {
    const HRESULT result = EndBefore(subQuery, subQuery.begin_time->value, milliseconds);
    if (Succeeded(result))
        subQuery.SetBeginTime(DatePair(zeroDate));
    return result;
}

HRESULT NormaliseBegin(Event& subQuery) {
    DatePair& begin = *subQuery.begin_time;
    if (!begin.op)
        return hr::ok;
    switch (begin.op->op) {
        case operatorGreaterThan:
            return Shifted(Text(begin.value), 1, &begin);
        case operatorGreaterThanOrEqual:
            return hr::ok;
        case operatorLessThan:
            return BeginAsEnd(subQuery, -1);
        case operatorLessThanOrEqual:
            return BeginAsEnd(subQuery, 0);
        default:
            return hr::invalidArgument;
    }
}

HRESULT NormaliseEnd(Event& subQuery) {
    if (!subQuery.end_time || !subQuery.end_time->op)
        return hr::ok;
    switch (subQuery.end_time->op->op) {
        case operatorLessThan:
            return EndBefore(subQuery, Text(subQuery.end_time->value), -1);
        case operatorLessThanOrEqual:
            return hr::ok;
        default:
            return hr::invalidArgument;
    }
}

}  // namespace

HRESULT NormaliseTimeRange(Event& subQuery) {
    if (!subQuery.begin_time)
        return hr::ok;
    try {
        const HRESULT result = NormaliseBegin(subQuery);
        return Failed(result) ? result : NormaliseEnd(subQuery);
    } catch (const std::bad_alloc&) {
        return hr::outOfMemory;
    }
}

}  // namespace ZEL
