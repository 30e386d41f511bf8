#pragma once

#include <atomic>
#include <chrono>
#include <string>
#include <string_view>

namespace zel {

// The order of the column `time`, in which a time may be written in any of the forms that people
// use: '-2h', 'today', a date, RFC 3339, SQLite's own '2026-11-12 10:00:00'. What is no time is
// compared as text. Used as a collation, so that it holds for each comparison that SQLite makes
// with the column, in whatever place of a statement, and for its sorting and grouping. Any thread.
class TimeOrder {
public:
    static constexpr const char* name = "zel_time";

    TimeOrder() { BeginStatement(); }

    // Sets the moment that '-2h' is reckoned from: one for a whole statement, or two comparisons of
    // it would differ. To be called when a statement begins to read.
    void BeginStatement() noexcept;

    // The text that stands for it in the order: for a time UTC with milliseconds, 24 characters,
    // for any other text itself.
    std::string Resolve(std::string_view text) const;
    // Below, at or above 0.
    int Compare(std::string_view left, std::string_view right) const;

private:
    std::atomic<std::chrono::sys_time<std::chrono::milliseconds>> now_{};
};

// Whether a text has the one form that times are stored in.
bool IsStoredTime(std::string_view text) noexcept;

}  // namespace zel
