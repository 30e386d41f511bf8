#include "agent/web/counttimes.h"

#include <algorithm>

namespace zel {

namespace {

constexpr std::int64_t second = 1000, minute = 60 * second, hour = 60 * minute, day = 24 * hour;

// Each divides the next, so that counts can be taken together.
constexpr std::int64_t widths[] = {
    1,          10,          100,         second, 5 * second, 15 * second, 30 * second, minute,
    5 * minute, 15 * minute, 30 * minute, hour,   3 * hour,   6 * hour,    12 * hour,   day};

// Names come from keys, which strangers may have written.
constexpr std::size_t mostNames = 32;
constexpr std::string_view otherName = "other";

}  // namespace

// Beyond days each is twice the one before.
std::int64_t TimeCounts::StepFor(std::int64_t width) {
    for (const std::int64_t one : widths)
        if (one >= width)
            return one;
    std::int64_t step = day;
    while (step < width)
        step *= 2;
    return step;
}

TimeCounts::TimeCounts(std::size_t mostSteps, std::int64_t width)
    : mostSteps_(mostSteps), width_(StepFor(width)) {}

std::int64_t TimeCounts::BeginOf(std::int64_t time) const {
    const std::int64_t rest = time % width_;
    return time - rest - (rest < 0 ? width_ : 0);
}

std::size_t TimeCounts::NumberOf(std::string_view name) {
    if (lastName_ < names_.size() && names_[lastName_] == name)
        return lastName_;
    const auto found = std::find(names_.begin(), names_.end(), name);
    lastName_ = static_cast<std::size_t>(found - names_.begin());
    if (found == names_.end()) {
        if (names_.size() >= mostNames && name != otherName)
            return NumberOf(otherName);
        names_.emplace_back(name);
    }
    return lastName_;
}

void TimeCounts::Add(std::int64_t time, std::string_view name) {
    first_ = total_ == 0 ? time : std::min(first_, time);
    last_ = total_ == 0 ? time : std::max(last_, time);
    ++total_;
    const std::int64_t begin = BeginOf(time);
    if (lastStep_ == nullptr || begin != lastBegin_) {
        lastStep_ = &steps_[begin];
        lastBegin_ = begin;
    }
    const std::size_t number = NumberOf(name);
    if (lastStep_->size() <= number)
        lastStep_->resize(number + 1);
    ++(*lastStep_)[number];
    if (steps_.size() > mostSteps_)
        Widen();
}

void TimeCounts::Widen() {
    width_ = StepFor(width_ + 1);
    std::map<std::int64_t, Counts> wider;
    for (const auto& [begin, counts] : steps_) {
        Counts& sum = wider[BeginOf(begin)];
        sum.resize(std::max(sum.size(), counts.size()));
        for (std::size_t i = 0; i < counts.size(); ++i)
            sum[i] += counts[i];
    }
    steps_.swap(wider);
    lastStep_ = nullptr;
}

void TimeCounts::FitInto(std::size_t steps) {
    while (total_ != 0 &&
           (BeginOf(last_) - BeginOf(first_)) / width_ >= static_cast<std::int64_t>(steps))
        Widen();
}

std::size_t TimeCounts::Bytes() const noexcept {
    constexpr std::size_t perStep = 96;
    std::size_t bytes = 0;
    for (const auto& [begin, counts] : steps_)
        bytes += perStep + counts.capacity() * sizeof(std::uint64_t);
    return bytes;
}

}  // namespace zel
