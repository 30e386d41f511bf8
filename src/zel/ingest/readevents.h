#pragma once

#include <string>

#include "records/formats/formats.h"
#include "zel/ingest/readlines.h"

namespace zel {

// How files of events are to be read.
struct EventReading {
    MappingOptions mapping;
    const Format* format = nullptr;  // the one that all is of; null: found line by line
};

// Takes what files hold. Both give false when no more is to be read.
class EventTaker {
public:
    virtual ~EventTaker() = default;
    // A line that is a record as it stands, or no event that any format knows.
    virtual bool TakeLine(const std::string& line, const LinePlace& place) = 0;
    // What came of an event of another source. May be changed.
    virtual bool TakeItem(SourceItem& item, const LinePlace& place) = 0;
};

// Hands the events of a file ("-" is standard input), and of the files in it where it is an
// archive, to `taker`. What can't be read is told and counted, and what follows is read all the
// same.
LinesEnd ReadEvents(const std::string& file, const EventReading& reading, InputFiles& files,
                    LineProblems& problems, EventTaker& taker);

}  // namespace zel
