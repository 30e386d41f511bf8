#include "agent/web/eventquestion.h"

#include <simdjson.h>

#include <algorithm>

#include "records/eventtime.h"

// The conditions are read by the same table as those of the command line. A walk of a part of the
// range asks anew with other times, since these stand in each part of a document.

namespace zel {

namespace {

namespace hr = ZEL::hr;

constexpr std::string_view levels[] = {"none",   "informational", "low",
                                       "medium", "high",          "critical"};

bool Has(const std::vector<std::string>& list, std::string_view wanted) {
    return std::find(list.begin(), list.end(), wanted) != list.end();
}

// Takes the values of one name out.
std::vector<std::string> TakeAll(Parameters* parameters, std::string_view name) {
    std::vector<std::string> values;
    std::erase_if(*parameters, [&](auto& parameter) {
        if (parameter.first != name)
            return false;
        values.push_back(std::move(parameter.second));
        return true;
    });
    return values;
}

std::string TextAt(simdjson::dom::element object, const char* key) {
    std::string_view text;
    return object[key].get(text) == simdjson::SUCCESS ? std::string(text) : "";
}

// What depends on the moment, but for the range, which stands in the document.
bool DependsOnMoment(const Parameters& parameters) {
    return std::any_of(parameters.begin(), parameters.end(), [](const auto& parameter) {
        const std::size_t begin = parameter.second.find_first_not_of(' ');
        return parameter.first == "where" && begin != std::string::npos &&
               parameter.second.compare(begin, 4, "time") == 0;
    });
}

}  // namespace

std::string TimeText(std::int64_t milliseconds) {
    return EventTimeOfMilliseconds(milliseconds).value_or(EventTime()).text;
}

std::vector<RuleMark> RuleMarksIn(std::string_view enrichments) {
    std::vector<RuleMark> marks;
    if (enrichments.find("\"sigma\"") == enrichments.npos)
        return marks;
    thread_local simdjson::dom::parser parser;
    simdjson::dom::array all;
    if (parser.parse(enrichments.data(), enrichments.size()).get(all) != simdjson::SUCCESS)
        return marks;
    for (const simdjson::dom::element each : all) {
        simdjson::dom::element mark;
        if (each["sigma"].get(mark) == simdjson::SUCCESS)
            marks.push_back({TextAt(mark, "id"), TextAt(mark, "title"), TextAt(mark, "level")});
    }
    return marks;
}

std::string_view HighestLevel(const std::vector<RuleMark>& marks) {
    std::size_t highest = 0;
    for (const RuleMark& mark : marks) {
        const auto* const found = std::find(std::begin(levels), std::end(levels), mark.level);
        // One that is not known still is a hit.
        highest = std::max<std::size_t>(
            highest,
            found == std::end(levels) ? 1 : static_cast<std::size_t>(found - std::begin(levels)));
    }
    return levels[highest];
}

std::optional<EventQuestion> EventQuestion::Make(Parameters parameters, const AskByParameters& ask,
                                                 std::string* problem) {
    EventQuestion question;
    question.ask_ = &ask;
    question.rules_ = TakeAll(&parameters, "rule");
    question.withoutRules_ = TakeAll(&parameters, "without_rule");
    question.levels_ = TakeAll(&parameters, "level");
    for (const std::string& level : question.levels_)
        if (std::find(std::begin(levels), std::end(levels), level) == std::end(levels)) {
            *problem = "level: none, informational, low, medium, high or critical is expected";
            return std::nullopt;
        }
    for (const char* const name : {"by", "after_cursor", "enrichments"})
        if (!TakeAll(&parameters, name).empty()) {
            *problem = std::string(name) + ": can't be asked here";
            return std::nullopt;
        }
    question.readsEnrichments_ =
        !question.rules_.empty() || !question.withoutRules_.empty() || !question.levels_.empty();
    AskedQuestion asked;
    if (!ask(parameters, &asked, problem) || !question.ReadDocument(asked.document, problem))
        return std::nullopt;
    question.fits_ = std::move(asked.fits);
    if (!DependsOnMoment(parameters)) {
        question.name_ = asked.document;
        for (const auto& [name, value] : parameters)
            if (name != "since" && name != "until" && name != "day" && name != "tz")
                question.name_->append(1, '\0').append(name).append(1, '=').append(value);
        const std::pair<char, const std::vector<std::string>*> lists[] = {
            {'+', &question.rules_}, {'-', &question.withoutRules_}, {'!', &question.levels_}};
        for (const auto& [sign, list] : lists)
            for (const std::string& value : *list)
                question.name_->append(1, '\0').append(1, sign).append(value);
    }
    for (const char* const name : {"since", "until", "day"})
        TakeAll(&parameters, name);
    question.parameters_ = std::move(parameters);
    return question;
}

bool EventQuestion::AsksOther(std::string_view name, std::string_view value) const {
    bool isAsked = false;
    for (const auto& [one, asked] : parameters_) {
        if (one == name && asked == value)
            return false;
        isAsked = isAsked || one == name;
    }
    return isAsked;
}

// All parts have one range.
bool EventQuestion::ReadDocument(const std::string& document, std::string* problem) {
    simdjson::dom::parser parser;
    simdjson::dom::element first;
    std::string_view since, until;
    if (parser.parse(document).at_pointer("/event_query/events/0").get(first) !=
            simdjson::SUCCESS ||
        first.at_pointer("/begin_time/value").get(since) != simdjson::SUCCESS) {
        *problem = "the conditions leave no range of time";
        return false;
    }
    range_.since = MillisecondsIn(since).value_or(EventSpan::noBegin);
    if (first.at_pointer("/end_time/value").get(until) == simdjson::SUCCESS)
        range_.until = MillisecondsIn(until).value_or(EventSpan::noEnd);
    return true;
}

std::optional<std::string> EventQuestion::DocumentFor(const EventSpan& part) const {
    Parameters parameters = parameters_;
    parameters.emplace_back("since", TimeText(std::max(part.since, range_.since)));
    parameters.emplace_back("until", TimeText(std::min(part.until, range_.until)));
    if (readsEnrichments_)
        parameters.emplace_back("enrichments", "");
    AskedQuestion asked;
    std::string problem;
    if (!(*ask_)(parameters, &asked, &problem))
        return std::nullopt;
    return std::move(asked.document);
}

bool EventQuestion::Fits(const ZEL::QueryRow& row) const {
    if (!rules_.empty() || !withoutRules_.empty() || !levels_.empty()) {
        const std::vector<RuleMark> marks = RuleMarksIn(row.enrichments);
        const auto isOneOf = [&](const std::vector<std::string>& names) {
            return std::any_of(marks.begin(), marks.end(),
                               [&](const RuleMark& mark) { return Has(names, mark.Name()); });
        };
        if ((!rules_.empty() && !isOneOf(rules_)) || isOneOf(withoutRules_) ||
            (!levels_.empty() && !Has(levels_, HighestLevel(marks))))
            return false;
    }
    return !fits_ || fits_(row.text);
}

ZEL::HRESULT EventQuestion::Walk(QuestionWork& work, const EventSpan& part,
                                 const OnEvent& onEvent) {
    if (part.since > part.until)
        return hr::ok;
    const auto document = DocumentFor(part);
    if (!document)
        return hr::invalidArgument;
    EventKeyReader reader;
    return work.Walk(*document, [&](const ZEL::QueryRow& row) {
        return Fits(row) ? onEvent(row, reader.Read(row.key)) : hr::ok;
    });
}

ZEL::HRESULT EventQuestion::WalkOnce(QuestionWork& work, const OnEvent& onEvent) {
    constexpr std::size_t mostKnown = std::size_t{1} << 21;
    SeenTexts seen(mostKnown);
    return Walk(work, range_, [&](const ZEL::QueryRow& row, const EventKeyHead& head) {
        return seen.Insert(row.key) ? onEvent(row, head) : hr::ok;
    });
}

}  // namespace zel
