#include "zel/ingest/readlines.h"

#include "zel/ingest/linereader.h"
#include "zel/terminal/messages.h"

// What all commands that read lines have in common: which lines count, how a place is named, when
// an interrupt is heeded. Interrupts are asked for on both sides of a read, as the read itself
// ends at one and then looks like the end of the file: nothing that came of it may be taken for
// the whole.

namespace zel {

namespace {

// One line of many megabytes must not keep its memory to the end of the file.
constexpr std::size_t largestKept = 1U << 20;  // bytes

// Ahead of the first line there is no number to tell.
LinesEnd TellUnreadable(const LinePlace& place, const std::string& why) {
    Say((place.line > 0 ? place.Text() : place.file) + ": can't be read: " + why);
    return LinesEnd::unreadable;
}

}  // namespace

LinesEnd ReadLines(const std::string& file, LineProblems& problems, const TakeLine& take) {
    LineReader reader(file);
    LinePlace place{file == "-" ? "(stdin)" : file};
    std::string line;
    while (!Interrupted()) {
        const LineReader::Status status = reader.Next(&line);
        place.line = reader.LineNumber();
        if (Interrupted())
            break;
        if (status == LineReader::Status::end)
            return LinesEnd::all;
        if (status == LineReader::Status::failed)
            return TellUnreadable(place, reader.Error());
        if (status == LineReader::Status::tooLong)
            problems.Add(place.Text(), {"longer than 64 MiB", ""});
        else if (line.find_first_not_of(" \t\r") != line.npos && !take(line, place) &&
                 !Interrupted())
            return LinesEnd::stopped;
        if (line.capacity() > largestKept)
            std::string().swap(line);
    }
    Say("interrupted at " + place.Text());
    return LinesEnd::interrupted;
}

}  // namespace zel
