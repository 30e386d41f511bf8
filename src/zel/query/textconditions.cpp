#include "zel/query/textconditions.h"

#include "zel/query/queryarguments.h"
#include "zel/terminal/textfit.h"

namespace zel {

namespace {

// A flag that asks the same of several columns, in one way or several.
struct TextFlag {
    const char* name;
    std::vector<std::string> QueryOptions::*values;
    struct Way {
        const char* column;
        ConditionOperator op;
        const char* ahead;  // of the value
    };
    std::vector<Way> ways;
};

const std::vector<TextFlag>& TextFlags() {
    using enum ConditionOperator;
    static const std::vector<TextFlag> flags = {
        {"--cmd-line",
         &QueryOptions::cmdLines,
         {{"actor_cmd_line", contains, ""}, {"target_cmd_line", contains, ""}}},
        // Sources write users with their domain in front, or without.
        {"--user", &QueryOptions::users, {{"user", equals, ""}, {"user", ends, "\\"}}},
        {"--computer", &QueryOptions::computers, {{"computer", equals, ""}}},
        {"--pid", &QueryOptions::pids, {{"actor_pid", equals, ""}, {"target_pid", equals, ""}}},
        {"--port", &QueryOptions::ports, {{"src_port", equals, ""}, {"dst_port", equals, ""}}},
        {"--grep", &QueryOptions::greps, {{"event", contains, ""}}},
    };
    return flags;
}

// As all times of the question are read. A zone that there is not is told where the others are.
TimeReader TimesOf(const QueryOptions& options) {
    std::string problem;
    const std::string& name = options.answer.zone;
    const ZoneTime zone =
        ZoneTime::Find(name.empty() ? "UTC" : name, &problem).value_or(ZoneTime());
    return [zone](std::string_view text) -> TimeWords {
        TimeArgument time = ParseTimeInZone(std::string(text), zone);
        if (!time.ok)
            return {"", "", std::move(time.error), time.column};
        return {time.text, time.endOfDay.empty() ? time.text : time.endOfDay, "", 0};
    };
}

std::string Words(const char* flag, const std::string& text, const ConditionProblem& problem) {
    const std::string what = problem.kind.empty() || problem.unknown.empty()
                                 ? problem.what
                                 : UnknownName(problem.kind, problem.unknown, problem.known);
    return Complaint(flag, text, what, problem.at);
}

bool Add(const TextFlag& flag, const std::string& value, Alternatives* group,
         std::string* problem) {
    ConditionProblem found;
    for (const auto& [column, op, ahead] : flag.ways) {
        auto condition =
            EventCondition::Make(*FindColumn(column), op, ahead + value, nullptr, &found);
        if (!condition) {
            *problem = Words(flag.name, value, found);
            return false;
        }
        group->push_back(std::move(*condition));
    }
    return true;
}

std::string InWords(const Alternatives& group) {
    std::string words;
    for (const EventCondition& each : group)
        words += (words.empty() ? "" : " or ") + each.Text();
    return words;
}

}  // namespace

bool ReadTextConditions(const QueryOptions& options, TextConditions* conditions,
                        std::string* problem) {
    const TimeReader readTime = TimesOf(options);
    ConditionProblem found;
    for (const std::string& text : options.wheres) {
        auto condition = EventCondition::Parse(text, readTime, &found);
        if (!condition) {
            *problem = Words("--where", text, found);
            return false;
        }
        conditions->push_back({std::move(*condition)});
    }
    for (const TextFlag& flag : TextFlags()) {
        Alternatives group;
        for (const std::string& value : options.*flag.values)
            if (!Add(flag, value, &group, problem))
                return false;
        if (!group.empty())
            conditions->push_back(std::move(group));
    }
    return true;
}

// Alternatives lie in different fields, of which one may not be in a key.
Narrowing NarrowingOf(const TextConditions& conditions) {
    std::vector<EventCondition> certain;
    for (const Alternatives& group : conditions)
        if (group.size() == 1)
            certain.push_back(group.front());
    return NarrowingOf(std::span<const EventCondition>(certain));
}

std::vector<std::string> InWords(const TextConditions& conditions) {
    std::vector<std::string> lines;
    for (const Alternatives& group : conditions) {
        const bool narrows = !NarrowingOf(TextConditions{group}).Empty();
        lines.push_back("the text decides: " + Escaped(InWords(group)) +
                        (narrows ? " (and the key, so that less is read)" : ""));
    }
    return lines;
}

bool TextFilter::Fits(std::string_view event) {
    const EventConditions::Answer answer = conditions_.Test(event);
    untested_ += answer == EventConditions::Answer::unreadable ? 1 : 0;
    return answer == EventConditions::Answer::yes;
}

}  // namespace zel
