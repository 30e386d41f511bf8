#pragma once

#include <optional>
#include <string>
#include <vector>

#include "common/result.h"
#include "madeevent.h"
#include "zelstore/schema/eventquery.h"

// A store of maps that looks at every row, and at what the row's event was made of instead of its
// key.
namespace ZEL::fuzz {

using Texts = std::vector<std::string>;
using Fields = std::map<std::string, std::string>;

struct Row {
    std::string value, time;
    Fields facts;                      // none for a receive-time row
    std::string eventKey, enrichment;  // of a receive-time row
};
using Rows = std::map<std::string, Row>;

inline std::string KeyOf(const Said& said, Fields* facts) {
    for (const auto& [name, conditions] : said.fields)
        if (!conditions.empty())
            (*facts)[name] = conditions.begin()->first;
    facts->erase("target_type_id");
    facts->erase("target_url_text");
    std::string key = "p<begin_time>" + TimeText(*said.begin) + "<sequence>000000000" +
                      std::to_string(said.event.seq_num) + "<object_type>" +
                      (*facts)["object_type"] + "<action>" + (*facts)["action"];
    for (const char* const name :
         {"actor_hash", "actor_path_name", "target_hash", "target_path_name", "target_source_ip",
          "target_destination_ip", "correlation_uid", "actor_uid"})
        if (facts->contains(name))
            key += "<" + std::string(name) + ">" + (*facts)[name];
    static const Fields typeNumbers = {
        {"file", "8003"},          {"process", "8001"}, {"network", "8007"}, {"reg_key", "8005"},
        {"kernel_object", "8009"}, {"url", "42"},       {"module", "8002"},  {"session", "8000"}};
    const std::string& type = (*facts)["object_type"];
    const bool asked = type == "file" && (*facts)["action"] == "reputation_query";
    (*facts)["type_id"] = asked ? "5" : typeNumbers.at(type);
    (*facts)["target_type_id"] = type == "kernel_object" ? "1" : "";
    return key;
}

inline std::string Joined(const Texts& all) {
    std::string joined;
    for (const std::string& text : all)
        joined += (joined.empty() ? "" : ",") + text;
    return joined;
}

inline bool PassesFilter(const Row& row, const std::map<std::string, Conditions>& filter) {
    return std::all_of(filter.begin(), filter.end(), [&](const auto& field) {
        const auto fact = row.facts.find(field.first);
        return fact != row.facts.end() && Passes(fact->second, field.second) == 1;
    });
}

inline std::string Spliced(const std::string& text, const std::string& member) {
    return text.substr(0, text.rfind('}')) + "," + member + "}";
}

struct Query {
    std::vector<Said> events;
    Schema::EventQuery document;
};
struct Outcome {
    HRESULT status = hr::ok;
    bool complete = true;
    Texts results;
};

// False for operators that make no range. Without a begin the end stays as it is.
inline bool CloseRange(const Said& event, std::string* begin, std::string* end) {
    *end = event.end ? TimeText(*event.end) : "";
    if (!event.begin)
        return true;
    const std::int32_t op = event.begin->op, endOp = event.end ? event.end->op : -1;
    *begin = TimeText(*event.begin, op == Schema::operatorGreaterThan ? 1 : 0);
    if (op == Schema::operatorLessThan || op == Schema::operatorLessThanOrEqual) {
        *end = TimeText(*event.begin, op == Schema::operatorLessThan ? -1 : 0);
        *begin = "1601-01-01T00:00:00.000Z";
        return true;
    }
    if (endOp == Schema::operatorLessThan)
        *end = TimeText(*event.end, -1);
    const auto isOneOf = [](std::int32_t number, std::initializer_list<std::int32_t> numbers) {
        return std::find(numbers.begin(), numbers.end(), number) != numbers.end();
    };
    return isOneOf(op, {-1, Schema::operatorGreaterThan, Schema::operatorGreaterThanOrEqual}) &&
           isOneOf(endOp, {-1, Schema::operatorLessThan, Schema::operatorLessThanOrEqual});
}

struct PlainStore {
    std::map<std::string, Rows> folders;  // by date
    std::map<std::string, std::map<std::string, std::string>> silent;

    std::optional<std::string> Result(const Rows& folder, const std::string& key, const Row& row,
                                      const Query& query) const {
        if (key[0] == 'r') {
            auto event = folder.find(row.eventKey);
            bool found = event != folder.end();
            for (auto other = folders.begin(); !found && other != folders.end(); ++other) {
                event = other->second.find(row.eventKey);
                found = event != other->second.end();
            }
            if (!found)
                return std::nullopt;
            return Spliced(event->second.value, "\"enriched_data\":" + row.enrichment);
        }
        std::string date = row.time.substr(0, 10);
        std::erase(date, '-');
        Texts values;
        const auto rows = silent.find(date);
        if (rows == silent.end() ||
            (!query.document.include_enrichments && !query.document.no_live_enriched_events))
            return row.value;
        for (const auto& [silentKey, value] : rows->second) {
            if (!silentKey.starts_with(key))
                continue;
            if (query.document.no_live_enriched_events &&
                silentKey.ends_with("<silent_enrichment>0"))
                return std::nullopt;
            if (query.document.include_enrichments)
                values.push_back(value);
        }
        return values.empty() ? row.value
                              : Spliced(row.value, "\"enrichments\":[" + Joined(values) + "]");
    }

    // Number of matches; none for a sub-query that fails.
    std::optional<int> Run(const Said& event, const Query& query, int limit, Texts* results) const {
        std::string begin, end;
        if ((!event.begin && !event.receive) || !CloseRange(event, &begin, &end))
            return std::nullopt;
        const std::string start = (event.receive ? "r<receive_time>" + TimeText(*event.receive)
                                                 : "p<begin_time>" + begin) +
                                  "<sequence>000000000" + std::to_string(event.event.seq_num);
        int matches = 0;
        for (const auto& [date, folder] : folders) {
            for (auto row = folder.lower_bound(start);
                 row != folder.end() && row->first[0] == start[0] &&
                 (end.empty() || row->second.time <= end);
                 ++row) {
                const auto result = PassesFilter(row->second, event.fields)
                                        ? Result(folder, row->first, row->second, query)
                                        : std::nullopt;
                if (!result)
                    continue;
                results->push_back(*result);
                if (++matches >= limit && limit >= 0)
                    return matches;
            }
        }
        return matches;
    }

    Outcome Run(const Query& query) const {
        Outcome outcome;
        int remaining = query.document.limit_result_count;
        for (const Said& event : query.events) {
            const auto matches = Run(event, query, remaining, &outcome.results);
            if (!matches) {
                outcome.status = hr::invalidArgument;
                break;
            }
            outcome.complete = remaining < 0 || *matches <= remaining;
            if (!outcome.complete)
                break;
            remaining -= remaining < 0 ? 0 : *matches;
        }
        return outcome;
    }
};

}  // namespace ZEL::fuzz
