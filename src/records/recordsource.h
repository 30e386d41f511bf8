#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "records/sourcefields.h"

namespace zel {

// What a source says of one event.
enum class EventFate : std::uint8_t {
    record,   // here it is
    noRule,   // the format is known, and nothing says what this event would be as a record
    refused,  // no event, or one that can't be read
};

// One event of a source: a record, or why there is none. Reused from one to the next.
struct SourceItem {
    EventFate fate = EventFate::refused;
    std::uint64_t place = 0;  // number of the line, or of the event in files without lines; from 1
    // Of `record`: one line of UTF-8. Of a `noRule` that is to be kept: the same, of a record that
    // holds all of the event and says little of it.
    std::string record;
    bool isKept = false;  // of `noRule`: there is such a record
    // What kind of event it is, in the source's own words ("Security", "4658"), for counting.
    std::string channel;
    std::string event;
    // Of `refused`, and of `noRule` when there is more to say. The kind is one of few constant
    // texts, by which problems are counted; the detail comes from the event and is escaped.
    std::string_view problem;
    std::string detail;
    // Values that stand in the record and that its key can't hold.
    std::uint32_t lostFromKey = 0;

    // Everything but the place.
    void Clear();
};

// Gives the events of one input, one after the other. For one thread. Whatever the input holds,
// nothing is thrown but want of memory.
class RecordSource {
public:
    virtual ~RecordSource() = default;
    // False when there is no further one; `*item` is then not to be used.
    virtual bool Next(SourceItem* item) = 0;
    // After that: why the input could not be read to its end, in words. Empty when it could.
    virtual std::string Error() const { return ""; }
};

// A line of an input. What it points to lives until Next has given false.
struct SourceLine {
    std::string_view text;     // without its end; UTF-8
    std::uint64_t number = 0;  // from 1
    // Of a line that is a JSON object: its members. Null for others. May be changed.
    SourceFields* fields = nullptr;
};

// A source whose input comes line by line: Give a line, ask Next until it says false, give the next
// line. An event may stand in several lines, also when others stand between: it is given once it is
// known to be complete, and at the End. One line may hold several events.
class LineSource : public RecordSource {
public:
    // Only after Next has given false, or ahead of its first call.
    virtual void Give(const SourceLine& line) = 0;
    // Whether an event is unfinished whose next line has no mark of its own, so that the next line
    // belongs to it, whatever it looks like.
    virtual bool Wants() const noexcept { return false; }
    // The number of the first line whose event was not given yet, since lines may follow that
    // belong to it; 0 when none waits. To be asked when Next has given false.
    virtual std::uint64_t HeldFrom() const noexcept { return 0; }
    // There are no more lines. Next then gives what is left.
    virtual void End() {}
};

}  // namespace zel
