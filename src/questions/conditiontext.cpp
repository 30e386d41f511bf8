#include <re2/re2.h>

#include <algorithm>
#include <charconv>
#include <chrono>

#include "common/asciicase.h"
#include "common/textbridge.h"
#include "questions/condition.h"
#include "records/conversions.h"
#include "records/timearg.h"

// From the words of a person to a condition. A text is read from left to right: the column, the
// operator, and all that is left is the value, so that command lines and paths need no quoting of
// their own. What can't be asked is told with the byte where it stands.

namespace zel {

namespace {

using enum ConditionOperator;

// Longer signs ahead of those that they begin with.
constexpr struct {
    std::string_view sign;
    ConditionOperator op;
} signs[] = {
    {"==", equals},  {"=", equals},     {"!=", differs}, {"<=", atMost},         {"<", less},
    {">=", atLeast}, {">", greater},    {"~", fits},     {"contains", contains}, {"starts", starts},
    {"ends", ends},  {"in", inNetwork},
};

bool IsWordCharacter(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

std::size_t SkipBlanks(std::string_view text, std::size_t at) {
    return std::min(text.find_first_not_of(" \t", at), text.size());
}

std::size_t EndOfWord(std::string_view text, std::size_t at) {
    while (at < text.size() && IsWordCharacter(text[at]))
        ++at;
    return at;
}

// Where the word or the sign at `at` ends.
std::size_t EndOfOperator(std::string_view text, std::size_t at) {
    const std::size_t end = EndOfWord(text, at);
    if (end != at)
        return end;
    for (const auto& row : signs)
        if (text.substr(at).starts_with(row.sign))
            return at + row.sign.size();
    return std::min(text.find_first_of(" \t", at), text.size());
}

bool Refuse(ConditionProblem* problem, std::string what, std::size_t at = 0) {
    *problem = {std::move(what), at, "", "", {}};
    return false;
}

std::vector<std::string_view> OperatorNames() {
    std::vector<std::string_view> names;
    for (const auto& row : signs)
        if (row.sign != "==")
            names.push_back(row.sign);
    return names;
}

std::vector<std::string_view> ColumnNames() {
    std::vector<std::string_view> names;
    for (const Column& column : Columns())
        if (column.from != ColumnFrom::beside)
            names.push_back(column.name);
    return names;
}

void TellUnknown(ConditionProblem* problem, const char* kind, std::string_view name, std::size_t at,
                 std::vector<std::string_view> known) {
    *problem = {std::string("unknown ") + kind + " \"" + std::string(name) + "\"", at,
                std::string(name), kind, std::move(known)};
}

const Column* ReadColumn(std::string_view text, std::size_t at, std::size_t end,
                         ConditionProblem* problem) {
    const std::string_view name = text.substr(at, end - at);
    if (name.empty()) {
        Refuse(problem, "a column is expected, then an operator and a value", at);
        return nullptr;
    }
    const Column* const column = FindColumn(name);
    if (column == nullptr)
        TellUnknown(problem, "column", name, at, ColumnNames());
    return column;
}

std::string_view WithoutQuotes(std::string_view value, std::size_t* at) {
    const bool isQuoted = value.size() >= 2 && value.front() == value.back() &&
                          (value.front() == '"' || value.front() == '\'');
    if (!isQuoted)
        return value;
    ++*at;
    return value.substr(1, value.size() - 2);
}

bool IsOfAddress(const Column& column) {
    return column.name == "src_ip" || column.name == "dst_ip";
}

TimeWords TimeFromNow(std::string_view text) {
    const auto now =
        std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
    TimeArgument time = ParseTimeArgument(std::string(text), now);
    if (!time.ok)
        return {"", "", std::move(time.error), time.column};
    return {time.text, time.endOfDay.empty() ? time.text : time.endOfDay, "", 0};
}

}  // namespace

std::string_view SignOf(ConditionOperator op) noexcept {
    const auto row = std::find_if(std::begin(signs) + 1, std::end(signs),
                                  [op](const auto& each) { return each.op == op; });
    return row->sign;
}

std::string EventCondition::Text() const {
    std::size_t at = 0;
    const bool needsQuotes = value_.empty() || value_.front() == ' ' || value_.back() == ' ' ||
                             WithoutQuotes(value_, &at).size() != value_.size();
    const char* const quote = needsQuotes ? "\"" : "";
    return std::string(column_->name)
        .append(" ")
        .append(SignOf(op_))
        .append(" ")
        .append(quote + value_ + quote);
}

std::optional<EventCondition> EventCondition::Parse(std::string_view text,
                                                    const TimeReader& readTime,
                                                    ConditionProblem* problem) {
    const std::size_t columnAt = SkipBlanks(text, 0), columnEnd = EndOfWord(text, columnAt);
    const zel::Column* const column = ReadColumn(text, columnAt, columnEnd, problem);
    if (column == nullptr)
        return std::nullopt;
    const std::size_t opAt = SkipBlanks(text, columnEnd), opEnd = EndOfOperator(text, opAt);
    const std::string_view sign = text.substr(opAt, opEnd - opAt);
    const auto row = std::find_if(std::begin(signs), std::end(signs),
                                  [sign](const auto& each) { return each.sign == sign; });
    if (row == std::end(signs)) {
        TellUnknown(problem, "operator", sign, opAt, OperatorNames());
        return std::nullopt;
    }
    std::size_t valueAt = SkipBlanks(text, opEnd);
    const std::size_t end = text.find_last_not_of(" \t") + 1;
    if (valueAt >= end) {
        Refuse(problem, "a value is expected", text.size());
        return std::nullopt;
    }
    const std::string_view value = WithoutQuotes(text.substr(valueAt, end - valueAt), &valueAt);
    auto condition = Make(*column, row->op, value, readTime, problem);
    if (!condition)
        problem->at += valueAt;
    return condition;
}

std::optional<EventCondition> EventCondition::Make(const zel::Column& column, ConditionOperator op,
                                                   std::string_view value,
                                                   const TimeReader& readTime,
                                                   ConditionProblem* problem) {
    EventCondition condition(column, op, value);
    return condition.Understand(readTime, problem) ? std::optional(std::move(condition))
                                                   : std::nullopt;
}

bool EventCondition::Understand(const TimeReader& readTime, ConditionProblem* problem) {
    if (column_->name == "key")
        return Refuse(problem, "an event's text does not tell its key; --key finds an event by it");
    if (column_->name == "host")
        return Refuse(problem, "an event's text does not tell its host; --host asks for one");
    if (!wm::IsUtf8(value_))
        return Refuse(problem, "not UTF-8");
    folded_ = value_;
    ZEL::MakeUpperAscii(folded_);
    MakeHint();
    if (op_ == contains && IsOfWholeEvent())
        inEvent_ = std::make_shared<EventSearch>(value_);
    else if (op_ == contains)
        search_ = std::make_shared<TextSearch>(value_);
    if (op_ == fits)
        return UnderstandExpression(problem);
    if (op_ == inNetwork) {
        if (!IsOfAddress(*column_))
            return Refuse(problem, "`in` asks for a network, so only of src_ip and dst_ip");
        std::string what;
        std::size_t at = 0;
        network_ = IpNetwork::Of(value_, &what, &at);
        return network_.has_value() || Refuse(problem, std::move(what), at);
    }
    if (IsCompared() && column_->type == ColumnType::number)
        return UnderstandNumber(problem);
    return !IsCompared() || column_->type != ColumnType::time || UnderstandTime(readTime, problem);
}

// `protocol = tcp` can be asked too.
bool EventCondition::UnderstandNumber(ConditionProblem* problem) {
    const bool isWord = value_.empty() || value_[0] < '0' || value_[0] > '9';
    const auto number = NumberIn(value_);
    if (!number || (isWord && column_->name != "protocol"))
        return Refuse(problem, "a number is expected");
    number_ = *number;
    if (op_ == equals)
        hint_ = std::make_shared<EventSearch>(std::to_string(number_));
    return true;
}

bool EventCondition::UnderstandTime(const TimeReader& readTime, ConditionProblem* problem) {
    TimeWords time = readTime ? readTime(value_) : TimeFromNow(value_);
    if (!time.problem.empty())
        return Refuse(problem, std::move(time.problem), time.at);
    firstTime_ = std::move(time.first);
    lastTime_ = std::move(time.last);
    hint_ = nullptr;
    return true;
}

bool EventCondition::UnderstandExpression(ConditionProblem* problem) {
    RE2::Options options;
    options.set_case_sensitive(false);
    options.set_dot_nl(true);
    options.set_log_errors(false);
    auto expression = std::make_shared<const RE2>(value_, options);
    if (!expression->ok()) {
        const std::size_t at = value_.find(expression->error_arg());
        return Refuse(problem, expression->error(), at != value_.npos ? at : 0);
    }
    expression_ = std::move(expression);
    return true;
}

// Only for operators whose value stands in what fits. A value that consists of two has a blank
// between them that the event has not; a list of objects and a fraction are read in another layout
// than they may be written in.
void EventCondition::MakeHint() {
    const bool isPart = op_ == equals || op_ == contains || op_ == starts || op_ == ends;
    const bool isWritten = column_->place.find('+') == column_->place.npos &&
                           value_.find_first_of("{}[]\":,") == value_.npos;
    const bool isNumber = value_.find_first_not_of("0123456789.eE+-") == value_.npos;
    const bool isPlain = std::none_of(value_.begin(), value_.end(), [](char c) {
        return static_cast<unsigned char>(c) < 0x20;  // JSON has two ways of writing it
    });
    if (isPart && isWritten && isPlain && !isNumber && !IsOfWholeEvent())
        hint_ = std::make_shared<EventSearch>(value_);
}

}  // namespace zel
