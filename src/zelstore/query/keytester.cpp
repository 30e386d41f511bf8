#include "zelstore/query/keytester.h"

#include <cpprest/json.h>

#include "zelstore/keys/keyformat.h"
#include "zelstore/query/machinepaths.h"
#include "zelstore/query/timerange.h"
#include "zelstore/schema/eventquery.h"

// Each sub-query is what it is for a walk: a first key, a last time and a filter (runquery.cpp,
// querysink.cpp). A walk begins at the one and ends at the other; here a key is held to all three.

namespace ZEL {

HRESULT KeyTester::Read(const std::string& document) {
    Schema::EventQuery query;
    query.FromJson(web::json::value::parse(utility::conversions::to_string_t(document)));
    for (Schema::Event& subQuery : query.events)
        if (const HRESULT result = Add(subQuery); Failed(result))
            return result;
    return parts_.empty() ? hr::invalidArgument : hr::ok;
}

HRESULT KeyTester::Add(Schema::Event& subQuery) {
    if (subQuery.receive_time)
        return hr::invalidArgument;
    HRESULT result = NormaliseTimeRange(subQuery);
    Schema::FilterMap conditions;
    if (Succeeded(result))
        result = Schema::ExtractKeyFields(subQuery, true, &MachinePaths(), conditions);
    if (Failed(result))
        return result;
    Part part{"", "", QueryFilter(conditions)};
    std::string buffer;
    if (subQuery.begin_time) {
        const auto time = Schema::ToUtf8(subQuery.begin_time->value, buffer);
        result = time ? MakeScanStartKey(familyPrimary, *time, subQuery.seq_num, &part.startKey)
                      : hr::invalidArgument;
    }
    if (const Schema::DatePair* const end = subQuery.end_time.get())
        part.endTime = Schema::ToUtf8(end->value, buffer).value_or("");
    parts_.push_back(std::move(part));
    return result;
}

bool KeyTester::Passes(std::string_view key) {
    KeyFields fields;
    SplitKeyFields(key, &fields);
    for (Part& part : parts_)
        if (Fits(part, key, fields))
            return true;
    return false;
}

bool KeyTester::Fits(Part& part, std::string_view key, const KeyFields& fields) {
    if (key < part.startKey)
        return false;
    std::string_view time;
    const bool isPastEnd =
        !part.endTime.empty() &&
        Succeeded(GetKeyField(fields, KeyFieldName(KeyField::beginTime), &time)) &&
        time > std::string_view(part.endTime);
    return !isPastEnd && part.filter.MatchesFilter(fields);
}

}  // namespace ZEL
