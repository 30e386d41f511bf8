#include <cpprest/json.h>

#include <algorithm>
#include <stdexcept>
#include <string>

#include "fuzz.h"
#include "zelstore/query/timerange.h"
#include "zelstore/schema/eventfields.h"
#include "zelstore/schema/eventquery.h"

// Query documents: read, written and read again, they say the same and give the same conditions;
// and a time range comes out closed. Input: the document.

namespace {

using namespace ZEL;
using namespace ZEL::Schema;
using Json = web::json::value;

// Leaves paths alone: what they stand for has a target of its own.
class SamePaths final : public IPathExpander {
public:
    HRESULT ExpandPath(const Text& path, bool, std::set<Text>& out) override {
        out.insert(path);
        return hr::ok;
    }
    HRESULT ExpandRegistryPath(const Text& path, bool, std::set<Text>& out) override {
        out.insert(path);
        return hr::ok;
    }
};

bool Parse(const std::string& text, EventQuery* query) {
    try {
        query->FromJson(Json::parse(text));
        return true;
    } catch (const web::json::json_exception&) {
    } catch (const std::out_of_range&) {  // a name that is in no table
    } catch (const std::range_error&) {   // half of a surrogate pair
    }
    return false;
}

std::string Written(const ZelSchemaParser& object) {
    Json json;
    object.ToJson(json);
    return json.serialize();
}

// All conditions of a sub-query as one text.
std::string Conditions(const Event& subQuery) {
    SamePaths paths;
    FilterMap filter;
    const HRESULT result = ExtractKeyFields(subQuery, true, &paths, filter);
    fuzz::Check(result == hr::ok || result == hr::unexpected, {Written(subQuery)});
    std::string text = std::to_string(static_cast<std::int32_t>(result));
    for (const auto& [name, values] : filter) {
        text += "\n" + name;
        for (const auto& [value, op] : values)
            text += "\n  " + std::to_string(op.op) + (op.caseSensitive ? "s " : "i ") + value;
    }
    return text;
}

bool Is(const Field<DatePair>& time, std::initializer_list<std::int32_t> operators) {
    return !time || !time->op ||
           std::find(operators.begin(), operators.end(), time->op->op) != operators.end();
}

// What has become a range is one, and stays as it is.
void CheckRange(Event event) {
    const std::string before = Written(event);
    const bool hasBegin = static_cast<bool>(event.begin_time);
    const HRESULT result = NormaliseTimeRange(event);
    const std::string after = Written(event);
    fuzz::Check(result == hr::ok || result == hr::timeTextLength || result == hr::invalidData ||
                    result == hr::invalidArgument,
                {before});
    fuzz::Check(hasBegin || (result == hr::ok && after == before), {before, after});
    if (Failed(result) || !hasBegin)
        return;
    fuzz::Check(Is(event.begin_time, {operatorGreaterThanOrEqual}) &&
                    Is(event.end_time, {operatorLessThanOrEqual}),
                {before, after});
    fuzz::Check(NormaliseTimeRange(event) == hr::ok && Written(event) == after, {before, after});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::Input(data, size).Rest();
    EventQuery first, second;
    if (!Parse(text, &first))
        return 0;
    std::string written;
    try {
        written = Written(first);
    } catch (const std::out_of_range&) {  // a state that was never named can't be written
        fuzz::Check(text.find("state") != std::string::npos, {text});
        return 0;
    }
    std::string buffer;
    // The parser takes text that is not Unicode, but not each of it when it is written plainly.
    const bool parsed = Parse(written, &second);
    fuzz::Check(parsed || !ToUtf8(written, buffer), {written});
    if (!parsed)
        return 0;
    fuzz::Check(Written(second) == written, {written, Written(second)});
    fuzz::Check(first.events.size() == second.events.size(), {written});
    for (std::size_t i = 0; i < first.events.size(); ++i) {
        fuzz::Check(Conditions(first.events[i]) == Conditions(second.events[i]),
                    {Conditions(first.events[i]), Conditions(second.events[i])});
        CheckRange(first.events[i]);
    }
    return 0;
}
