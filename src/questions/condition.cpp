#include "questions/condition.h"

#include <re2/re2.h>

#include <algorithm>
#include <charconv>

#include "common/asciicase.h"

// How a condition is tested. The value that was asked for is understood once, by the type of its
// column; what an event holds is read each time. An event's value that is not of its column's type,
// such as a number that is none, counts as missing.
//
// Times compare as text, byte by byte, as keys do: what the key decides and what the text decides
// can then never differ. A day is all its moments: `time = 2026-11-12` is each of them, `time >
// 2026-11-12` is behind the last.
//
// Reading an event for its columns costs more than all else. So what can be told of the event's
// bytes is asked first: an event that holds a value holds its characters, in one of the ways in
// which JSON writes them.

namespace zel {

namespace {

using enum ConditionOperator;

// Whether a value of this order to the one asked for fits.
bool FitsOrdering(ConditionOperator op, int order) {
    switch (op) {
        case equals:
            return order == 0;
        case differs:
            return order != 0;
        case less:
            return order < 0;
        case atMost:
            return order <= 0;
        case greater:
            return order > 0;
        default:
            return order >= 0;
    }
}

template <typename T>
int OrderOf(const T& a, const T& b) {
    return a < b ? -1 : b < a ? 1 : 0;
}

int OrderNoCase(std::string_view text, std::string_view folded) {
    const std::size_t common = std::min(text.size(), folded.size());
    for (std::size_t i = 0; i < common; ++i) {
        const auto c = static_cast<unsigned char>(ZEL::ToUpperAscii(text[i]));
        if (c != static_cast<unsigned char>(folded[i]))
            return OrderOf(c, static_cast<unsigned char>(folded[i]));
    }
    return OrderOf(text.size(), folded.size());
}

bool EqualsFolded(std::string_view text, std::string_view folded) {
    return text.size() == folded.size() &&
           std::equal(text.begin(), text.end(), folded.begin(),
                      [](char c, char f) { return ZEL::ToUpperAscii(c) == f; });
}

std::optional<std::uint64_t> WholeNumberIn(std::string_view text) {
    std::uint64_t number = 0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isAll = parsed.ec == std::errc() && parsed.ptr == text.data() + text.size();
    return isAll ? std::optional(number) : std::nullopt;
}

}  // namespace

bool EventCondition::FitsOrder(std::string_view value) const {
    if (column_->type == ColumnType::time) {
        const int order = value < firstTime_ ? -1 : value > lastTime_ ? 1 : 0;
        return FitsOrdering(op_, order);
    }
    if (column_->type != ColumnType::number)
        return FitsOrdering(op_, OrderNoCase(value, folded_));
    const auto number = WholeNumberIn(value);
    return number ? FitsOrdering(op_, OrderOf(*number, number_)) : op_ == differs;
}

bool EventCondition::FitsPresent(std::string_view value) const {
    if (IsCompared())
        return FitsOrder(value);
    switch (op_) {
        case contains:
            return inEvent_ ? inEvent_->IsIn(value) : search_->IsIn(value);
        case starts:
            return value.size() >= folded_.size() &&
                   EqualsFolded(value.substr(0, folded_.size()), folded_);
        case ends:
            return value.size() >= folded_.size() &&
                   EqualsFolded(value.substr(value.size() - folded_.size()), folded_);
        case inNetwork:
            return network_->Holds(value);
        default:
            return RE2::PartialMatch(re2::StringPiece(value.data(), value.size()), *expression_);
    }
}

bool EventCondition::Fits(std::optional<std::string_view> value) const {
    return value ? FitsPresent(*value) : op_ == differs;
}

bool EventCondition::IsOfWholeEvent() const noexcept {
    return column_->type == ColumnType::json;
}

EventConditions::EventConditions(std::vector<Alternatives> all) : all_(std::move(all)) {
    const auto parted =
        std::stable_partition(all_.begin(), all_.end(), [](const Alternatives& group) {
            return std::all_of(group.begin(), group.end(),
                               [](const EventCondition& each) { return each.IsOfWholeEvent(); });
        });
    ofWholeEvent_ = static_cast<std::size_t>(parted - all_.begin());
}

EventConditions::EventConditions(const std::vector<EventCondition>& all)
    : EventConditions([&] {
          std::vector<Alternatives> groups;
          groups.reserve(all.size());
          for (const EventCondition& each : all)
              groups.push_back({each});
          return groups;
      }()) {}

EventConditions::Answer EventConditions::Test(std::string_view event) {
    const auto onText = all_.begin() + static_cast<std::ptrdiff_t>(ofWholeEvent_);
    const auto anyOf = [](const Alternatives& group, auto fits) {
        return std::any_of(group.begin(), group.end(), fits);
    };
    const auto fitsText = [&](const EventCondition& each) { return each.Fits(event); };
    const auto mayFit = [&](const EventCondition& each) { return each.MayFit(event); };
    const auto fits = [&](const EventCondition& each) {
        return each.Fits(reader_.Value(each.Column()));
    };
    for (auto group = all_.begin(); group != all_.end(); ++group)
        if (group < onText ? !anyOf(*group, fitsText) : !anyOf(*group, mayFit))
            return Answer::no;
    if (onText == all_.end())
        return Answer::yes;
    if (!reader_.Read(event))
        return Answer::unreadable;
    const bool allFit = std::all_of(onText, all_.end(),
                                    [&](const Alternatives& group) { return anyOf(group, fits); });
    return allFit ? Answer::yes : Answer::no;
}

}  // namespace zel
