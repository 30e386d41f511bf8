#include "zelstore/query/keytester.h"

#include <cpprest/json.h>

#include "zelstore/schema/eventquery.h"

// Each sub-query is what it is for a walk: a first key, a last time and a filter (runquery.cpp,
// querysink.cpp). A walk begins at the one and ends at the other; here a key is held to all three.

namespace ZEL {

HRESULT KeyTester::Read(const std::string& document) {
    Schema::EventQuery query;
    query.FromJson(web::json::value::parse(Schema::FromUtf8(document)));
    for (Schema::Event& subQuery : query.events) {
        SubQueryTerms terms;
        const HRESULT result =
            subQuery.receive_time ? hr::invalidArgument : ReadTerms(subQuery, &terms);
        if (Failed(result))
            return result;
        Add(terms);
    }
    return parts_.empty() ? hr::invalidArgument : hr::ok;
}

void KeyTester::Add(const SubQueryTerms& terms) {
    parts_.push_back({terms.startKey, terms.endTime, QueryFilter(terms.conditions)});
}

bool KeyTester::Passes(std::string_view key) {
    KeyFields fields;
    SplitKeyFields(key, &fields);
    for (Part& part : parts_)
        if (Fits(part, key, fields))
            return true;
    return false;
}

bool KeyTester::Passes(std::size_t part, std::string_view key) {
    KeyFields fields;
    SplitKeyFields(key, &fields);
    return Fits(parts_[part], key, fields);
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
