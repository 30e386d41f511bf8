#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// The rows of a soak. Each is made of four numbers alone, so that whoever meets one can say who
// sent it and whether it is whole.
namespace ZEL::soak {

// An event, its receive-time row, and enrichments of it: live beside the events, silent in the
// folder of its date.
enum Kind : unsigned { event, receive, live, silent, kinds };

struct RowId {
    Kind kind = event;
    unsigned phase = 0, producer = 0, number = 0;
};

inline constexpr unsigned mostProducers = 16;
inline constexpr unsigned mostEvents = 30000;  // of a producer in a phase

// What became of a row; a number above says more about an acknowledged one.
enum Fate : std::uint32_t { unsent, refused, purged, acknowledged };

// Each phase has dates of its own, which its clock shows in turn: nothing is written to the folders
// of an earlier phase.
inline constexpr unsigned daysOfAPhase = 3;
std::string Date(unsigned phase, unsigned day, const char* separator = "");
// An event's begin_time is one of the phase's dates and, as its millisecond, the event's number.
std::string TimeText(unsigned phase, unsigned day, unsigned millisecond);
inline unsigned DayOf(unsigned number) {
    return number % daysOfAPhase;
}
inline bool IsCreation(unsigned number) {
    return number % 2 == 0;
}
inline bool HasRow(Kind kind, unsigned number) {
    return kind == live ? number % 7 == 3 : kind != silent || number % 5 == 1;
}

std::string EventKey(const RowId& id);
std::string Value(const RowId& id);
// A row as a query gives it: an event or live enrichment alone, an event with its silent
// enrichment, or a receive-time row with its event.
std::string Result(const RowId& id, bool isEnriched);
// Who sent a value or a query's result; kind `kinds` when nobody did.
RowId IdOf(std::string_view text);

// Tells a fault on stderr.
void Broken(const std::string& what);
unsigned Faults();
// Says on stderr what begins, and ends the process when it takes longer than a few minutes.
void Step(unsigned phase, const char* what);
// Until another process has this one go on.
void StandStill();

}  // namespace ZEL::soak
