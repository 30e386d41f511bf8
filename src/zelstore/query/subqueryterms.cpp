#include "zelstore/query/subqueryterms.h"

#include "zelstore/query/machinepaths.h"
#include "zelstore/query/timerange.h"

namespace ZEL {

HRESULT ReadTerms(Schema::Event& subQuery, SubQueryTerms* terms) {
    HRESULT result = NormaliseTimeRange(subQuery);
    if (Succeeded(result))
        result = Schema::ExtractKeyFields(subQuery, true, &MachinePaths(), terms->conditions);
    if (Failed(result))
        return result;
    std::string buffer;
    if (const Schema::DatePair* const end = subQuery.end_time.get())
        terms->endTime = Schema::ToUtf8(end->value, buffer).value_or("");
    terms->family = subQuery.receive_time ? familyReceive : familyPrimary;
    const Schema::DatePair* const start =
        subQuery.receive_time ? subQuery.receive_time.get() : subQuery.begin_time.get();
    terms->hasTime = start != nullptr;
    if (!terms->hasTime)
        return hr::ok;
    const auto time = Schema::ToUtf8(start->value, buffer);
    if (!time)
        return hr::invalidArgument;
    terms->time = *time;
    terms->sequence = subQuery.seq_num;
    return MakeScanStartKey(terms->family, terms->time, terms->sequence, &terms->startKey);
}

}  // namespace ZEL
