#include <stdlib.h>

#include <filesystem>
#include <optional>
#include <vector>

#include "common/countedptr.h"
#include "common/describedmachine.h"
#include "common/hostservices.h"
#include "common/textbridge.h"
#include "fuzz.h"
#include "naive.h"
#include "zelstore/eventstoreimpl.h"
#include "zelstore/keymaker.h"

// The whole road: records go into a real store and queries come out, against a plain look at the
// same records. Input: choices, a byte each, of what is written on which days and what is asked.

namespace {

using namespace ZEL;
using fuzz::Conditions;
using fuzz::Input;
using Texts = std::vector<std::string>;
using Fields = std::map<std::string, std::string>;

// ---- What is written and asked -----------------------------------------------------------------

struct Pair {
    Texts values;
    int op = fuzz::equals;
    bool caseSensitive = false;
};
struct Object {
    std::string type;
    std::map<std::string, Pair> pairs;
    std::vector<int> typeIds;
};
struct Moment {
    int day = 12, ms = 0;  // of November 2026; behind ten o'clock
    int op = -1;           // none
};
struct Event {
    std::optional<Moment> begin, receive, end;
    unsigned sequence = 0;
    std::optional<Object> actor, target;
    Texts actions;
    std::optional<Pair> correlation;
    std::vector<int> typeIds;
};

const char* const types[] = {"file",          "process", "network", "reg_key",
                             "kernel_object", "url",     "module",  "session"};
const char* const actions[] = {"create", "open", "reputation_query", "terminate"};
const char* const texts[] = {
    "C:\\a.exe",  "C:\\A.EXE", "C:\\temp\\b.txt",   "1.2.3.4", "1.2.3.40", "ab", "AB",
    "b0\xC3\xA9", "",          "[1](2){3}^+.$\"/x", "a",       "~"};
const char* const wildcards[] = {"*",     "C:\\*",     "?:\\a.exe", "*.EXE", "1.2.?.*",
                                 "*b*t*", "[ab]?.{1}", "(",         "a|*"};

Moment MakeMoment(Input& input, bool withOp) {
    static const int ms[] = {0, 1, 2, 999};
    static const int ops[] = {-1, -1, 10, 8, 9, 7, fuzz::equals};
    const int day = 11 + static_cast<int>(input.Below(3));
    return {day, input.Pick(ms), withOp ? input.Pick(ops) : -1};
}

Pair MakePair(Input& input, bool forQuery) {
    Pair pair;
    for (unsigned count = input.Below(forQuery ? 4 : 3); count > 0; --count)
        pair.values.emplace_back(input.Below(3) == 0 ? input.Pick(wildcards) : input.Pick(texts));
    if (const unsigned choice = forQuery ? input.Byte() : 0; choice % 3 != 0) {
        pair.op = static_cast<int>(choice / 6 % 12);
        pair.caseSensitive = choice % 2 != 0;
    }
    return pair;
}

Object MakeObject(Input& input, std::string type, bool forQuery) {
    Object object{std::move(type), {}, {}};
    const unsigned one = input.Byte(), other = input.Byte();
    const unsigned which = forQuery ? one & other : one | other;
    const char* const members[] = {"path", "sha2", "uid", "src_ip", "dst_ip", "text", "name"};
    for (unsigned i = 0; i < std::size(members); ++i)
        if ((which >> i & 1) != 0)
            object.pairs[members[i]] = MakePair(input, forQuery);
    if ((which & 128) != 0)
        object.typeIds = {static_cast<int>(input.Below(3))};
    return object;
}

Event MakeEvent(Input& input, bool forQuery) {
    Event event;
    const unsigned kind = input.Below(16), which = input.Byte();  // bits of a query hold less often
    event.sequence = input.Below(3);
    if (!forQuery || kind > 2)
        event.begin = MakeMoment(input, forQuery);
    if (forQuery && kind > 0 && kind < 4)
        event.receive = MakeMoment(input, false);
    if (forQuery && which % 4 == 0)
        event.end = MakeMoment(input, true);
    if (!forQuery || which % 16 > 9)
        event.target = MakeObject(input, input.Pick(types), forQuery);
    if ((which & 8) != 0 && (!forQuery || (which & 16) != 0))
        event.actor = MakeObject(input, input.Below(4) != 0 ? "process" : "file", forQuery);
    if ((which & 32) != 0 && (!forQuery || (which & 64) != 0))
        event.correlation = MakePair(input, forQuery);
    for (unsigned count = forQuery ? input.Below(5) / 3 * 2 : 1 + input.Below(2); count > 0;
         --count)
        event.actions.emplace_back(input.Pick(actions));
    if (forQuery && input.Below(8) == 0)
        event.typeIds = {8003, input.Below(2) != 0 ? 5 : 8001};
    return event;
}

// ---- As JSON -----------------------------------------------------------------------------------

std::string TimeText(const Moment& moment, int shift = 0) {
    const int ms = 36000000 + moment.ms + shift;
    char text[64];
    std::snprintf(text, sizeof(text), "2026-11-%02dT%02d:%02d:%02d.%03dZ", moment.day, ms / 3600000,
                  ms / 60000 % 60, ms / 1000 % 60, ms % 1000);
    return text;
}

std::string Quoted(const std::string& text) {
    std::string json = "\"";
    for (const char c : text)
        json += (c == '"' || c == '\\' ? "\\" : "") + std::string(1, c);
    return json + '"';
}

template <typename Values, typename Write>
std::string List(const Values& values, Write&& write) {
    std::string json;
    for (const auto& value : values)
        json += (json.empty() ? "" : ",") + write(value);
    return "[" + json + "]";
}

std::string OperatorJson(int op, bool caseSensitive) {
    return std::string(R"("operator":{"value":")") + fuzz::opNames[op] +
           R"(","case_insensitive":)" + (caseSensitive ? "false" : "true") + "},";
}

std::string PairJson(const Pair& pair) {
    const bool isPlain = pair.op == fuzz::equals && !pair.caseSensitive;
    return "{" + (isPlain ? "" : OperatorJson(pair.op, pair.caseSensitive)) +
           "\"value\":" + List(pair.values, Quoted) + "}";
}

std::string MomentJson(const Moment& moment) {
    return "{" + (moment.op < 0 ? "" : OperatorJson(moment.op, false)) +
           "\"value\":" + Quoted(TimeText(moment)) + "}";
}

std::string ObjectJson(const Object& object) {
    std::string json = R"({"object_type":)" + Quoted(object.type);
    for (const auto& [name, pair] : object.pairs)
        json += "," + Quoted(name) + ":" + PairJson(pair);
    if (!object.typeIds.empty())
        json += R"(,"type_ids":)" + List(object.typeIds, [](int n) { return std::to_string(n); });
    return json + "}";
}

std::string EventJson(const Event& event) {
    std::string json = R"({"seq_num":)" + std::to_string(event.sequence) + R"(,"artifacts":{)";
    if (event.actor)
        json += R"("actor":)" + ObjectJson(*event.actor);
    if (event.target)
        json += (event.actor ? "," : "") + std::string(R"("target":)") + ObjectJson(*event.target);
    json += R"(},"action":)" + List(event.actions, Quoted);
    if (event.begin)
        json += R"(,"begin_time":)" + MomentJson(*event.begin);
    if (event.receive)
        json += R"(,"receive_time":)" + MomentJson(*event.receive);
    if (event.end)
        json += R"(,"end_time":)" + MomentJson(*event.end);
    if (event.correlation)
        json += R"(,"correlation_uid":)" + PairJson(*event.correlation);
    if (!event.typeIds.empty())
        json += R"(,"type_id":{"value":)" +
                List(event.typeIds, [](int n) { return std::to_string(n); }) + "}";
    return json + "}";
}

// ---- As facts and conditions -------------------------------------------------------------------

std::string WildcardsAsPattern(const std::string& value) {
    std::string pattern;
    for (const char c : value) {
        const bool isSpecial = std::string("\\.$^{}[]()|+").find(c) != std::string::npos;
        pattern += c == '*'    ? ".*"
                   : c == '?'  ? ".{1}"
                   : isSpecial ? std::string("\\") + c
                               : std::string(1, c);
    }
    return pattern;
}

Conditions PairConditions(const Pair& pair, bool hasWildcards) {
    Conditions conditions;
    int op = pair.op;
    for (const std::string& value : pair.values) {
        const bool converts =
            hasWildcards && op == fuzz::equals && value.find_first_of("*?") != std::string::npos;
        op = converts ? static_cast<int>(fuzz::fitsPattern) : op;
        conditions.emplace(converts ? WildcardsAsPattern(value) : value,
                           fuzz::Condition{op, pair.caseSensitive});
    }
    return conditions;
}

std::map<std::string, Conditions> Extract(const Event& event) {
    std::map<std::string, Conditions> fields;
    const auto add = [&](const char* field, const std::optional<Object>& object,
                         const std::string& typeList, const char* member, bool hasWildcards) {
        if (!object || (" " + typeList + " ").find(" " + object->type + " ") == std::string::npos)
            return;
        if (const auto pair = object->pairs.find(member); pair != object->pairs.end())
            fields[field] = PairConditions(pair->second, hasWildcards);
    };
    const auto numbers = [](const std::vector<int>& values) {
        Conditions conditions;
        for (const int number : values)
            conditions[std::to_string(number)] = {fuzz::equals, false};
        return conditions;
    };
    add("actor_hash", event.actor, "file process", "sha2", false);
    add("actor_path_name", event.actor, "file process", "path", true);
    add("actor_uid", event.actor, "process", "uid", false);
    add("target_hash", event.target, "file process module", "sha2", false);
    add("target_path_name", event.target, "file process module reg_key", "path", true);
    add("target_path_name", event.target, "kernel_object", "name", true);
    add("target_source_ip", event.target, "network", "src_ip", true);
    add("target_destination_ip", event.target, "network", "dst_ip", true);
    add("target_url_text", event.target, "url", "text", true);
    if (event.target)
        fields["object_type"][event.target->type] = {fuzz::equals, true};
    if (event.target && event.target->type == "kernel_object")
        fields["target_type_id"] =
            numbers(event.target->typeIds.empty() ? std::vector<int>{1} : event.target->typeIds);
    for (const std::string& action : event.actions)
        fields["action"][action] = {fuzz::equals, true};
    if (!event.typeIds.empty())
        fields["type_id"] = numbers(event.typeIds);
    if (event.correlation) {
        Pair pair = *event.correlation;
        std::transform(pair.values.begin(), pair.values.end(), pair.values.begin(),
                       fuzz::UpperCase);
        fields["correlation_uid"] = PairConditions(pair, false);
    }
    return fields;
}

// ---- The plain store ---------------------------------------------------------------------------

struct Row {
    std::string value, time;
    Fields facts;                      // none for a receive-time row
    std::string eventKey, enrichment;  // of a receive-time row
};
using Rows = std::map<std::string, Row>;

std::string KeyOf(const Event& event, Fields* facts) {
    for (const auto& [name, conditions] : Extract(event))
        if (!conditions.empty())
            (*facts)[name] = conditions.begin()->first;
    facts->erase("target_type_id");
    facts->erase("target_url_text");
    std::string key = "p<begin_time>" + TimeText(*event.begin) + "<sequence>000000000" +
                      std::to_string(event.sequence) + "<object_type>" + (*facts)["object_type"] +
                      "<action>" + (*facts)["action"];
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

bool PassesFilter(const Row& row, const std::map<std::string, Conditions>& filter) {
    try {
        return std::all_of(filter.begin(), filter.end(), [&](const auto& field) {
            const auto fact = row.facts.find(field.first);
            return fact != row.facts.end() && fuzz::Passes(fact->second, field.second);
        });
    } catch (const std::runtime_error&) {
        return false;
    }
}

std::string Spliced(const std::string& text, const std::string& member) {
    return text.substr(0, text.rfind('}')) + "," + member + "}";
}

struct Query {
    std::vector<Event> events;
    int limit = -1;
    bool includeEnrichments = false, noLive = false;
};
struct Outcome {
    HRESULT status = hr::ok;
    bool complete = true;
    Texts results;
};

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
        if (rows == silent.end() || (!query.includeEnrichments && !query.noLive))
            return row.value;
        for (const auto& [silentKey, value] : rows->second) {
            if (!silentKey.starts_with(key))
                continue;
            if (query.noLive && silentKey.ends_with("<silent_enrichment>0"))
                return std::nullopt;
            if (query.includeEnrichments)
                values.push_back(value);
        }
        return values.empty()
                   ? row.value
                   : Spliced(row.value,
                             "\"enrichments\":" + List(values, [](const auto& v) { return v; }));
    }

    // Number of matches; none for a sub-query that fails.
    std::optional<int> Run(const Event& event, const Query& query, int limit,
                           Texts* results) const {
        if (!event.begin && !event.receive)
            return std::nullopt;
        std::string begin = event.begin ? TimeText(*event.begin) : "";
        std::string end = event.end ? TimeText(*event.end) : "";
        bool isEndDone = !event.begin || !event.end || event.end->op < 0;
        switch (event.begin ? event.begin->op : -1) {
            case fuzz::lessThan:
            case fuzz::lessThanOrEqual:
                end = TimeText(*event.begin, event.begin->op == fuzz::lessThan ? -1 : 0);
                begin = "1601-01-01T00:00:00.000Z";
                isEndDone = true;
                break;
            case fuzz::greaterThan:
                begin = TimeText(*event.begin, 1);
                break;
            case -1:
            case fuzz::greaterThanOrEqual:
                break;
            default:
                return std::nullopt;
        }
        if (!isEndDone && event.end->op != fuzz::lessThan && event.end->op != fuzz::lessThanOrEqual)
            return std::nullopt;
        if (!isEndDone && event.end->op == fuzz::lessThan)
            end = TimeText(*event.end, -1);
        const std::string start = (event.receive ? "r<receive_time>" + TimeText(*event.receive)
                                                 : "p<begin_time>" + begin) +
                                  "<sequence>000000000" + std::to_string(event.sequence);
        const auto filter = Extract(event);
        int matches = 0;
        for (const auto& [date, folder] : folders) {
            for (auto row = folder.lower_bound(start);
                 row != folder.end() && row->first[0] == start[0] &&
                 (end.empty() || row->second.time <= end);
                 ++row) {
                const auto result = PassesFilter(row->second, filter)
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
        int remaining = query.limit;
        for (const Event& event : query.events) {
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

// ---- The real store ----------------------------------------------------------------------------

class Clock final : public wm::IClock {
public:
    wm::SystemTime UtcNow() noexcept override { return {2026, 11, 0, day, 10, 0, 0, 0}; }
    std::uint64_t TickCount64() noexcept override { return 0; }
    std::atomic<std::uint16_t> day{12};
};

class Callback final : public IQueryCallback {
public:
    TobResult QueryInterface(const GUID&, void**) override { return TOBERR_NO_INTERFACE; }
    std::int64_t AddRef() override { return 2; }
    std::int64_t Release() override { return 1; }
    HRESULT OnQueryResults(HRESULT status, IValueCollection* results, bool isFinal, bool complete,
                           IStringValue*, std::int32_t) override {
        fuzz::Check(!ended, {"called behind the end"});
        ended = isFinal;
        outcome.status = status;
        outcome.complete = complete;
        for (std::size_t i = 0; results != nullptr && i < results->Count(); ++i) {
            IStringValue* const value = results->GetValue(i);
            outcome.results.emplace_back();
            wm::ToUtf8({value->GetText(), value->GetLength(0)}, outcome.results.back());
        }
        return hr::ok;
    }
    bool ended = false;
    Outcome outcome;
};

// One for the process, like the store. Emptied and started anew for each input.
class RealStore {
public:
    RealStore() {
        std::string error;
        machine_ = wm::DescribedMachine::Parse("{}", &error);
        wm::SetMachine(machine_.get());
        wm::SetClock(&clock_);
        std::string path = (std::filesystem::temp_directory_path() / "zelfuzz-XXXXXX").string();
        fuzz::Check(::mkdtemp(path.data()) != nullptr, {path});
        directory_ = path;
        wm::SetPathToken(L"%ZELDataStore%", directory_.wstring());
    }
    ~RealStore() { std::filesystem::remove_all(directory_); }
    RealStore(const RealStore&) = delete;
    RealStore& operator=(const RealStore&) = delete;

    void Start(unsigned day) {
        clock_.day = static_cast<std::uint16_t>(day);
        fuzz::Check(core_.Initialize() == hr::ok, {"not started"});
    }
    void Insert(const std::string& key, const std::string& value, bool silent) {
        fuzz::Check(core_.EnqueueForInsertion(key, value, silent) == hr::ok, {key});
    }
    // All that was inserted is on the disk behind it, and can still be asked for.
    void Stop() { fuzz::Check(core_.Stop() == hr::ok, {"not stopped"}); }
    Outcome Run(const std::string& document) {
        std::wstring wide;
        wm::ToWide(document, wide);
        const auto text = CountedPtr<IStringValue>::Adopt(wm::CreateStringValue(wide.c_str()));
        Callback callback;
        wm::EventObject stop;
        stop.Create(false, false);
        fuzz::Check(
            core_.Query(text.Get(), &callback, stop.Handle(), nullptr) == callback.outcome.status &&
                callback.ended,
            {document});
        return callback.outcome;
    }
    void Clear() {
        CountedPtr<IValueCollection> errors;
        fuzz::Check(core_.GetDatabaseErrors(errors.Receive()) == hr::ok && errors->Count() == 0,
                    {"a database failed"});
        fuzz::Check(core_.Shutdown() == hr::ok, {"not shut down"});
        for (const auto& entry : std::filesystem::directory_iterator(directory_))
            std::filesystem::remove_all(entry);
    }

private:
    static constexpr std::uint32_t never = 3600000;

    std::unique_ptr<wm::DescribedMachine> machine_;
    Clock clock_;
    std::filesystem::path directory_;
    EventStoreImpl core_{{never, never}};
};

// ---- One input ---------------------------------------------------------------------------------

struct Writer {
    Input& input;
    RealStore& store;
    PlainStore& plain;
    std::vector<std::pair<std::string, Row>> events;  // all so far, with their keys
    unsigned counter = 0;

    void WriteEvent(Rows& folder) {
        const Event event = MakeEvent(input, false);
        Row row{EventJson(event), TimeText(*event.begin), {}, "", ""};
        const std::string plainKey = KeyOf(event, &row.facts);
        std::string key;
        fuzz::Check(MakeEventKeyUtf8(row.value, &key) == hr::ok && key == plainKey,
                    {row.value, key, plainKey});
        store.Insert(key, row.value, false);
        folder[key] = row;
        events.emplace_back(key, row);
    }
    void WriteEnrichment(Rows& folder) {
        const auto& [eventKey, event] = events[input.Below(static_cast<unsigned>(events.size()))];
        const char* const flags[] = {"", "<silent_enrichment>0", "<silent_enrichment>1"};
        const std::string key = eventKey + "<silent_sequence>000000000" +
                                std::to_string(counter++ % 10) + input.Pick(flags);
        const std::string value = "{\"n\":" + std::to_string(counter) + "}";
        const bool silent = input.Below(4) != 0;
        store.Insert(key, value, silent);
        std::string date = event.time.substr(0, 10);
        std::erase(date, '-');
        if (silent)
            plain.silent[date][key] = value;
        else
            folder[key] = {value, event.time, event.facts, "", ""};
    }
    void WriteReceiveTime(Rows& folder) {
        const auto& eventKey = events[input.Below(static_cast<unsigned>(events.size()))].first;
        const std::string time = TimeText(MakeMoment(input, false));
        const std::string key =
            "r<receive_time>" + time + "<sequence>000000000" + std::to_string(input.Below(4));
        Row row{"", time, {}, input.Below(8) != 0 ? eventKey : "p<gone", "null"};
        row.value = "{\"event_pkey\":" + Quoted(row.eventKey);
        if (input.Below(2) != 0)
            row.value += ",\"event_enrichment\":" + (row.enrichment = "{\"e\":[1]}");
        row.value += "}";
        if (input.Below(8) == 0)
            row = {"no JSON", time, {}, "", ""};
        store.Insert(key, row.value, false);
        folder[key] = row;
    }
    void WriteDay() {
        const unsigned day = 11 + input.Below(4);
        store.Start(day);
        const unsigned count = input.Below(10);
        for (unsigned i = 0; i < count; ++i) {
            Rows& folder = plain.folders["202611" + std::to_string(day)];
            const unsigned kind = events.empty() ? 0 : input.Below(8);
            if (kind < 5)
                WriteEvent(folder);
            else if (kind < 7)
                WriteEnrichment(folder);
            else
                WriteReceiveTime(folder);
        }
        store.Stop();
    }
};

void Ask(Input& input, RealStore& store, const PlainStore& plain) {
    Query query;
    const unsigned flags = input.Byte();
    query.limit = static_cast<int>(flags % 8) - 3;
    query.includeEnrichments = (flags & 8) != 0;
    query.noLive = (flags & 16) != 0;
    for (unsigned count = 1 + input.Below(5) / 3; count > 0; --count)
        query.events.push_back(MakeEvent(input, true));
    const std::string document =
        R"({"event_query":{"events":)" + List(query.events, EventJson) +
        R"(,"limit_result_count":)" + std::to_string(query.limit) + R"(,"include_enrichments":)" +
        (query.includeEnrichments ? "true" : "false") + R"(,"no_live_enriched_events":)" +
        (query.noLive ? "true" : "false") + "}}";
    const Outcome expected = plain.Run(query), outcome = store.Run(document);
    const auto same = [](const std::string& text) { return text; };
    fuzz::Check(outcome.status == expected.status && outcome.complete == expected.complete &&
                    outcome.results == expected.results,
                {document, List(outcome.results, same), List(expected.results, same)});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static RealStore store;
    Input input(data, size);
    PlainStore plain;
    Writer writer{input, store, plain, {}};
    for (unsigned days = 1 + input.Below(3); days > 0; --days)
        writer.WriteDay();
    for (int queries = 0; queries == 0 || (queries < 4 && !input.Empty()); ++queries)
        Ask(input, store, plain);
    store.Clear();
    return 0;
}
