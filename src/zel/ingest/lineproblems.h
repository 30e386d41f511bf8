#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace zel {

// Why a line is not taken. By the kind problems are counted, so it must not hold anything of the
// line; the text lives as long as the program. What comes from the line goes into the detail,
// escaped. An empty kind stands for no problem.
struct LineProblem {
    std::string_view kind;  // such as "no begin_time": one of few constant texts
    std::string detail;     // what this line adds to it; may be empty
};

// Tells the problems of a run. Of each kind the first ten are told in full as they come, all of
// them when everything is to be told; the rest is counted. For one thread. A file with a fault in
// every line must not bury what else is said, nor fill the memory: of a kind only its first place
// is kept.
class LineProblems {
public:
    explicit LineProblems(bool tellsAll) : tellsAll_(tellsAll) {}

    // `place` is a file and a line's number.
    void Add(const std::string& place, const LineProblem& problem);
    // At the end: one message for each kind that was not told in full.
    void TellRest() const;
    std::uint64_t Count() const noexcept { return count_; }

private:
    struct Kind {
        std::uint64_t count = 0;
        std::string first;  // place
    };
    const bool tellsAll_;
    std::uint64_t count_ = 0;
    std::map<std::string_view, Kind> kinds_;
};

}  // namespace zel
