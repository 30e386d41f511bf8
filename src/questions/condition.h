#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "questions/ipaddress.h"
#include "questions/textsearch.h"
#include "records/recordreader.h"

namespace re2 {
class RE2;
}

namespace zel {

// What is asked of one column of an event: COLUMN OP VALUE, as people write it.
//
//   =  !=  <  <=  >  >=       compared by the column's type
//   contains  starts  ends    a part of the text
//   ~                         a regular expression that fits somewhere in the text (RE2)
//   in                        an address within a network, 10.0.0.0/8 or fe80::/10
//
// Letter case does not matter, that is, that of ASCII letters; `(?-i)` in front of an expression
// makes it matter there. An event without the value fits `!=` alone.
enum class ConditionOperator : std::uint8_t {
    equals,
    differs,
    less,
    atMost,
    greater,
    atLeast,
    contains,
    starts,
    ends,
    fits,
    inNetwork,
};
// As it is written. Lives as long as the program.
std::string_view SignOf(ConditionOperator op) noexcept;

// A time as people write it. Of a day the first and the last moment, else both are the same; in the
// store's form of 24 characters. Where `problem` holds something it is none, for that reason, and
// `at` is the byte where.
struct TimeWords {
    std::string first, last, problem;
    std::size_t at = 0;
};
using TimeReader = std::function<TimeWords(std::string_view)>;

// Why a condition can't be asked, and the byte of its text where.
struct ConditionProblem {
    std::string what;
    std::size_t at = 0;
    // A name that is not known, and those that are, for who wants to suggest one; else empty.
    std::string unknown, kind;  // "column" or "operator"
    std::vector<std::string_view> known;
};

// One condition. Copies share what is costly. Any thread.
class EventCondition {
public:
    // `text`: COLUMN OP VALUE; blanks around a sign may be left out. Quotes around the whole value
    // are taken off, so that it may begin or end with blanks; within it nothing is special.
    // Without a reader times are taken as ParseTimeArgument takes them, from now. None, with why,
    // for what can't be asked.
    static std::optional<EventCondition> Parse(std::string_view text, const TimeReader& readTime,
                                               ConditionProblem* problem);
    // The same of parts; places in `problem` count from the value's start.
    static std::optional<EventCondition> Make(const zel::Column& column, ConditionOperator op,
                                              std::string_view value, const TimeReader& readTime,
                                              ConditionProblem* problem);

    const zel::Column& Column() const noexcept { return *column_; }
    ConditionOperator Operator() const noexcept { return op_; }
    const std::string& Value() const noexcept { return value_; }
    // Of a condition on a time: what the value stands for.
    const std::string& FirstTime() const noexcept { return firstTime_; }
    const std::string& LastTime() const noexcept { return lastTime_; }
    // "actor_path ends \cmd.exe", as Parse takes it.
    std::string Text() const;

    // Of the column's value; none where the event has none.
    bool Fits(std::optional<std::string_view> value) const;
    // Whether the whole text of an event decides, so that it need not be read for its columns.
    bool IsOfWholeEvent() const noexcept;
    // False only where the event can't fit: to be asked ahead of reading it.
    bool MayFit(std::string_view event) const noexcept { return !hint_ || hint_->MayBeIn(event); }

private:
    EventCondition(const zel::Column& column, ConditionOperator op, std::string_view value)
        : column_(&column), op_(op), value_(value) {}

    bool Understand(const TimeReader& readTime, ConditionProblem* problem);
    bool UnderstandNumber(ConditionProblem* problem);
    bool UnderstandTime(const TimeReader& readTime, ConditionProblem* problem);
    bool UnderstandExpression(ConditionProblem* problem);
    void MakeHint();

    bool FitsPresent(std::string_view value) const;
    bool IsCompared() const noexcept { return op_ <= ConditionOperator::atLeast; }
    bool FitsOrder(std::string_view value) const;

    const zel::Column* column_;
    ConditionOperator op_;
    std::string value_, folded_;
    std::string firstTime_, lastTime_;
    std::uint64_t number_ = 0;
    std::optional<IpNetwork> network_;
    std::shared_ptr<const TextSearch> search_;    // contains
    std::shared_ptr<const EventSearch> inEvent_;  // contains, of the whole event
    std::shared_ptr<const EventSearch> hint_;
    std::shared_ptr<const re2::RE2> expression_;
};

// Conditions one of which has to fit.
using Alternatives = std::vector<EventCondition>;

// Conditions all of which have to fit, tested on one event after the other. For one thread.
class EventConditions {
public:
    explicit EventConditions(std::vector<Alternatives> all);
    explicit EventConditions(const std::vector<EventCondition>& all);

    enum class Answer : std::uint8_t { no, yes, unreadable };
    // `event`: the record's text. An event whose columns can't be read is `unreadable` where no
    // condition on its text alone has refused it.
    Answer Test(std::string_view event);

private:
    std::vector<Alternatives> all_;  // those of the whole event come first
    std::size_t ofWholeEvent_ = 0;
    RecordReader reader_;
};

}  // namespace zel
