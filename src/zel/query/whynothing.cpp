#include "zel/query/whynothing.h"

#include <algorithm>
#include <set>
#include <string>

#include "common/asciicase.h"
#include "common/countedptr.h"
#include "common/eventobject.h"
#include "common/valuetext.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/textfit.h"

// Two kinds of causes: the question's form, told by the document alone, and the store's content,
// told by asking for one event of the same time without other conditions. Such a walk ends at the
// first row behind its start, so that it costs no more than opening the folders. Where the time is
// the cause, nothing else is told: no other condition has been put to the test then.

namespace zel {

namespace {

using web::json::value;

constexpr const char* firstTime = "1601-01-01T00:00:00.000Z";

// Keeps the first result of a question. Lives on the caller's stack: its count is not looked at.
class FirstResult final : public ZEL::IQueryCallback {
public:
    ZEL::TobResult QueryInterface(const ZEL::GUID&, void** out) override {
        *out = nullptr;
        return ZEL::TOBERR_NO_INTERFACE;
    }
    std::int64_t AddRef() override { return 2; }
    std::int64_t Release() override { return 1; }
    ZEL::HRESULT OnQueryResults(ZEL::HRESULT, ZEL::IValueCollection* results, bool isFinal, bool,
                                ZEL::IStringValue*, std::int32_t) override {
        if (!isFinal && results->Count() != 0 && text.empty())
            text = wm::ToText(results->GetValue(0));
        return ZEL::hr::ok;
    }

    std::string text;  // empty: there was none
};

// The first event that fits the sub-queries; empty when there is none.
std::string AskForOne(const value& events, ZEL::IEventStore& store) {
    value document = value::object();
    document["event_query"]["events"] = events;
    document["event_query"]["limit_result_count"] = value(1);
    wm::EventObject stop;
    FirstResult first;
    const auto text = wm::ToValue(document.serialize());
    if (text && stop.Create(wm::EventReset::automatic))
        ZEL::IgnoreResult(store.Query(text.Get(), &first, stop.Handle()), "then nothing is told");
    return first.text;
}

// A sub-query's times without its other conditions.
value TimesOf(const value& subQuery) {
    value times = value::object();
    for (const char* key : {"begin_time", "receive_time", "end_time"})
        if (subQuery.has_field(key))
            times[key] = subQuery.at(key);
    return times;
}

// Equal ranges once, since the question that is made of them walks each.
value TimesOfAll(const value& events) {
    std::set<std::string> known;
    value all = value::array();
    for (const value& event : events.as_array()) {
        const value times = TimesOf(event);
        if (known.insert(times.serialize()).second)
            all[all.size()] = times;
    }
    return all;
}

// For a message, so what can't be read becomes nothing.
std::string TimeOf(const std::string& event) {
    try {
        return value::parse(event).at("begin_time").at("value").as_string();
    } catch (const std::exception&) {
        return "";
    }
}

// Whether it was said that nothing lies in the range.
bool TellEmptyRange(const value& events, ZEL::IEventStore& store) {
    if (!AskForOne(TimesOfAll(events), store).empty())
        return false;
    value all = value::array(1);
    all[0]["begin_time"]["value"] = value(firstTime);
    const std::string first = AskForOne(all, store);
    if (first.empty())
        Say("the store holds no events at all");
    else
        Say("the store holds none of that time, whatever else is asked; its oldest folder begins "
            "with one of " +
            Escaped(TimeOf(first)));
    return true;
}

// What follows the root of a registry path, from its separator on; empty for other paths.
std::string BehindRegistryRoot(const std::string& path) {
    constexpr std::string_view kernelRoot = "\\REGISTRY\\";
    constexpr std::string_view roots[] = {"HKLM\\", "HKCU\\", "HKU\\",
                                          "HKCR\\", "HKEY_",  kernelRoot};
    for (const std::string_view root : roots) {
        const std::size_t at = path.find('\\', root == kernelRoot ? root.size() : 0);
        if (ZEL::StartsWithNoCase(path, root) && at != path.npos)
            return path.substr(at);
    }
    return "";
}

// What may be wrong with a path that is compared with `equals`; empty for nothing. One doubt a
// path: the root of a registry path is the likelier cause.
std::string DoubtOf(const std::string& path, bool isOfRegistry) {
    const bool hasWildcard = path.find_first_of("*?") != path.npos;
    const std::string last = path.substr(path.find_last_of('\\') + 1);
    if (const std::string rest = BehindRegistryRoot(path); isOfRegistry && !rest.empty())
        return "sensors write the roots of registry paths in several ways; \"*" + Escaped(rest) +
               "\" leaves the root open";
    if (!hasWildcard && !last.empty())
        return "\"" + Escaped(path) + "\" is compared with whole paths; \"*\\" + Escaped(last) +
               "\" finds that name in any folder";
    return "";
}

bool IsEquals(const value& pair) {
    return !pair.has_field("operator") || pair.at("operator").at("value").as_string() == "equals";
}

// As a set, since several parts of a question may raise the same one.
std::set<std::string> DoubtsOf(const value& events) {
    std::set<std::string> doubts;
    for (const value& event : events.as_array()) {
        if (!event.has_field("artifacts"))
            continue;
        for (const auto& [role, artifact] : event.at("artifacts").as_object()) {
            if (!artifact.has_field("path") || !IsEquals(artifact.at("path")))
                continue;
            const bool isOfRegistry = artifact.at("object_type").as_string().starts_with("reg_");
            for (const value& path : artifact.at("path").at("value").as_array())
                doubts.insert(DoubtOf(path.as_string(), isOfRegistry));
        }
    }
    doubts.erase("");
    return doubts;
}

}  // namespace

void TellNothingFound(const value& document, ZEL::IEventStore* store) {
    const value& events = document.at("event_query").at("events");
    Say("no events");
    if (store != nullptr) {
        const bool isEmptyRange = TellEmptyRange(events, *store);
        ZEL::IgnoreResult(store->ClearDatabaseErrors(), "they were told of the question itself");
        if (isEmptyRange)
            return;
    }
    for (const std::string& doubt : DoubtsOf(events))
        Say(doubt);
}

}  // namespace zel
