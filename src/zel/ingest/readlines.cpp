#include "zel/ingest/readlines.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <iterator>

#include "records/input/linereader.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/textfit.h"

// What all commands that read lines have in common: which lines count, how a place is named, when
// an interrupt is heeded. Interrupts are asked for on both sides of a read, as the read itself
// ends at one and then looks like the end of the file: nothing that came of it may be taken for
// the whole.

namespace zel {

namespace {

// One line of many megabytes must not keep its memory to the end of the file.
constexpr std::size_t largestKept = 1U << 20;  // bytes

}  // namespace

// The signal that ends the program may have gone to another thread, so the pipe that it fills is
// waited for beside the input.
bool AwaitDescriptor(int descriptor) {
    pollfd waits[] = {{descriptor, POLLIN, 0}, {InterruptDescriptor(), POLLIN, 0}};
    while (!Interrupted()) {
        const int ready = ::poll(waits, std::size(waits), -1);
        if (ready < 0 ? errno != EINTR : waits[0].revents != 0)
            return true;
    }
    return false;
}

// Ahead of the first line there is no number to tell.
void TellUnreadable(const LinePlace& place, const std::string& why) {
    Say((place.line > 0 ? place.Text() : place.file) + ": can't be read: " + why);
}

LinesEnd ReadParts(const std::string& file, InputFiles& files, const TakePart& take) {
    LinesEnd worst = LinesEnd::all;
    const auto takePart = [&](const std::string& name, PeekStream& bytes) {
        // What an archive calls its files is not to be obeyed by a terminal.
        const LinesEnd end = take(name.size() == file.size() ? name : Escaped(name), bytes);
        worst = std::max(worst, end);
        return end == LinesEnd::all || end == LinesEnd::unreadable;
    };
    std::string error;
    if (files.Read(file, takePart, &error) == InputEnd::unreadable && !Interrupted()) {
        TellUnreadable({file == "-" ? "(stdin)" : file}, Escaped(error));
        worst = std::max(worst, LinesEnd::unreadable);
    }
    return worst;
}

LinesEnd ReadLinesOf(const std::string& name, ByteStream& bytes, std::string_view alsoEndsAt,
                     LineProblems& problems, const TakeLine& take) {
    LineReader reader(bytes, alsoEndsAt);
    LinePlace place{name};
    std::string line;
    while (!Interrupted()) {
        const LineReader::Status status = reader.Next(&line);
        place.line = reader.LineNumber();
        if (Interrupted())
            break;
        if (status == LineReader::Status::end)
            return LinesEnd::all;
        if (status == LineReader::Status::failed) {
            TellUnreadable(place, reader.Error());
            return LinesEnd::unreadable;
        }
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

LinesEnd ReadLines(const std::string& file, LineProblems& problems, const TakeLine& take) {
    InputFiles files(AwaitDescriptor);
    return ReadParts(file, files, [&](const std::string& name, PeekStream& bytes) {
        return ReadLinesOf(name, bytes, {}, problems, take);
    });
}

}  // namespace zel
