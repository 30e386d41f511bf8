#include "questions/narrowing.h"

#include <algorithm>

#include "common/jsontext.h"
#include "questions/keynames.h"

// What of a question a key decides for sure. A key that lacks a field fits no condition on it, so
// one may be asked for only where an event that has the value can't have a key without it:
//
//   time, action, object   every key has them. Names of actions and objects that are not in the
//                          vocabulary no record can have, but a host may store what it likes.
//   correlation_uid        of every record, in upper case, which conditions on keys don't mind.
//   hash, addresses        of targets of certain kinds alone; a record may carry them with any
//                          other kind, so the kind has to be asked for as well.
//
// Not asked for: the actor's fields, as an actor that does not say that it is a process has none in
// the key; paths, since a machine makes others of those that are asked for; the event type, which a
// key takes from the target's kind and not from the record; and of values with characters that keys
// don't hold as they are.
//
// Of several values the key has the first in byte order, and so has the column.

namespace zel {

namespace {

constexpr const char* firstTime = "1601-01-01T00:00:00.000Z";

// Values that stand in a key as they stand in the text.
bool IsKept(std::string_view value) {
    return !value.empty() && value != "-" &&
           value.find_first_of(std::string_view("<>|*?\0", 6)) == value.npos;
}

bool IsOneOf(std::string_view text, std::initializer_list<std::string_view> all) {
    return std::find(all.begin(), all.end(), text) != all.end();
}

std::string InLowerCase(std::string text) {
    for (char& c : text)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return text;
}

// How an address of a network can begin: by the whole numbers that it starts with, or, of IPv4
// written as IPv6, by a colon or a zero. Empty where every beginning is possible.
std::vector<std::string> StartsOf(std::string_view network) {
    const std::size_t slash = network.find('/');
    const std::string_view address = network.substr(0, slash);
    if (address.find(':') != address.npos)
        return {};
    const int bits = slash == network.npos ? 32 : std::stoi(std::string(network.substr(slash + 1)));
    std::size_t end = 0;
    for (int whole = 0; whole < bits / 8 && whole < 3; ++whole)
        end = address.find('.', end) + 1;
    if (end == 0)
        return {};
    return {std::string(address.substr(0, end)), ":", "0"};
}

class Narrower {
public:
    explicit Narrower(Narrowing* out) : out_(*out) {}

    void Take(const EventCondition& condition) {
        const std::string_view column = condition.Column().name;
        if (column == "time")
            TakeTime(condition);
        else if (condition.Operator() == ConditionOperator::equals)
            TakeEqual(column, condition.Value());
    }
    // Once the kind is known.
    void TakeOfTarget(const EventCondition& condition) {
        const std::string_view column = condition.Column().name;
        const bool hasHash = IsOneOf(out_.object, {"process", "file", "module", "service"});
        const bool isEqual =
            condition.Operator() == ConditionOperator::equals && IsKept(condition.Value());
        if (column == "target_hash" && hasHash && isEqual)
            out_.targetHash = condition.Value();
        else if (IsOneOf(column, {"src_ip", "dst_ip"}) && out_.object == "network")
            TakeAddress(condition);
    }

private:
    // Bounds that are not met themselves are asked for all the same: the text decides.
    void TakeTime(const EventCondition& condition) {
        using enum ConditionOperator;
        const ConditionOperator op = condition.Operator();
        if (op == equals || op == greater || op == atLeast)
            out_.since =
                std::max(out_.since, op == greater ? condition.LastTime() : condition.FirstTime());
        if (op == equals || op == less || op == atMost) {
            const std::string& until = op == less ? condition.FirstTime() : condition.LastTime();
            out_.until = out_.until.empty() ? until : std::min(out_.until, until);
        }
    }

    void TakeEqual(std::string_view column, const std::string& value) {
        const std::string name = InLowerCase(value);
        if (column == "action" && IsAction(name))
            out_.actions = {name};
        else if (column == "object" && IsObjectToAsk(name))
            out_.object = name;
        else if (column == "correlation_uid" && IsKept(value))
            out_.correlation = value;
    }

    void TakeAddress(const EventCondition& condition) {
        if (condition.Operator() != ConditionOperator::inNetwork)
            return;
        const std::string member(condition.Column().name);
        const bool isNew = std::none_of(out_.addresses.begin(), out_.addresses.end(),
                                        [&](const auto& each) { return each.member == member; });
        auto starts = StartsOf(condition.Value());
        if (isNew && !starts.empty())
            out_.addresses.push_back({member, std::move(starts)});
    }

    Narrowing& out_;
};

std::string Quoted(const std::string& text) {
    return wm::JsonString(text);
}

std::string Pair(const char* comparison, const std::string& value) {
    return std::string(R"({"operator":{"value":")") + comparison + R"("},"value":)" + value + "}";
}

std::string List(const std::vector<std::string>& values) {
    std::string list = "[";
    for (const std::string& value : values)
        list += (list.size() > 1 ? "," : "") + Quoted(value);
    return list + "]";
}

std::string TargetOf(const Narrowing& narrowing) {
    std::string target = R"({"object_type":)" + Quoted(narrowing.object);
    if (!narrowing.targetHash.empty())
        target += R"(,"sha2":)" + Pair("equals", List({narrowing.targetHash}));
    for (const auto& [member, values] : narrowing.addresses)
        target += "," + Quoted(member) + ":" + Pair("starts_with", List(values));
    return target + "}";
}

}  // namespace

bool Narrowing::Empty() const {
    return since.empty() && until.empty() && actions.empty() && object.empty() &&
           correlation.empty();
}

Narrowing NarrowingOf(std::span<const EventCondition> conditions) {
    Narrowing narrowing;
    Narrower narrower(&narrowing);
    for (const EventCondition& condition : conditions)
        narrower.Take(condition);
    for (const EventCondition& condition : conditions)
        narrower.TakeOfTarget(condition);
    return narrowing;
}

std::string SubQueryOf(const Narrowing& narrowing) {
    std::string text =
        R"({"begin_time":)" + Pair("greater_than_or_equal",
                                   Quoted(narrowing.since.empty() ? firstTime : narrowing.since));
    if (!narrowing.until.empty())
        text += R"(,"end_time":)" + Pair("less_than_or_equal", Quoted(narrowing.until));
    if (!narrowing.actions.empty())
        text += R"(,"action":)" + List(narrowing.actions);
    if (!narrowing.correlation.empty())
        text += R"(,"correlation_uid":)" + Pair("equals", List({narrowing.correlation}));
    if (!narrowing.object.empty())
        text += R"(,"artifacts":{"target":)" + TargetOf(narrowing) + "}";
    return text + "}";
}

}  // namespace zel
