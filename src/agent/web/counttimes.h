#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace zel {

// Counts by steps of time and by a name, in bounded memory: where there would be too many steps
// they become wider, each a multiple of the ones before. For one thread.
class TimeCounts {
public:
    using Counts = std::vector<std::uint64_t>;  // by the number of the name

    // Never narrower than `width` milliseconds, which is rounded up to a step that clocks have.
    explicit TimeCounts(std::size_t mostSteps, std::int64_t width = 1);
    TimeCounts(const TimeCounts&) = delete;
    TimeCounts& operator=(const TimeCounts&) = delete;

    void Add(std::int64_t time, std::string_view name);
    // Widens the steps until there are at most so many between the first and the last.
    void FitInto(std::size_t steps);

    std::int64_t Width() const noexcept { return width_; }
    std::uint64_t Total() const noexcept { return total_; }
    // Of the events themselves; good where Total is not 0.
    std::int64_t First() const noexcept { return first_; }
    std::int64_t Last() const noexcept { return last_; }
    const std::vector<std::string>& Names() const noexcept { return names_; }
    // By the begin of the step.
    const std::map<std::int64_t, Counts>& Steps() const noexcept { return steps_; }
    std::size_t Bytes() const noexcept;

    // The least step of clocks that is at least that wide.
    static std::int64_t StepFor(std::int64_t width);

private:
    std::size_t NumberOf(std::string_view name);
    void Widen();
    std::int64_t BeginOf(std::int64_t time) const;

    const std::size_t mostSteps_;
    std::int64_t width_;
    std::map<std::int64_t, Counts> steps_;
    std::vector<std::string> names_;
    std::size_t lastName_ = 0;
    Counts* lastStep_ = nullptr;  // of the event before, which begins at lastBegin_
    std::int64_t lastBegin_ = 0;
    std::int64_t first_ = 0, last_ = 0;
    std::uint64_t total_ = 0;
};

}  // namespace zel
