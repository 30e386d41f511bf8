#include "zel/ingest/readevents.h"

#include "records/formats/lineformats.h"
#include "zel/terminal/messages.h"

namespace zel {

namespace {

// One file, which may be one of an archive. Everything that is remembered of events begins anew
// with it, so that it gives the same records whatever was read ahead of it.
class EventFile {
public:
    EventFile(const std::string& name, const EventReading& reading, LineProblems& problems,
              EventTaker& taker)
        : place_{name},
          reading_(reading),
          mapper_(reading.mapping),
          problems_(problems),
          taker_(taker) {}

    LinesEnd Read(PeekStream& bytes) {
        const std::string head = bytes.Peek(1, [](const std::string&) { return false; });
        const Format* const whole =
            reading_.format != nullptr ? reading_.format : FindFileFormat(head);
        return whole != nullptr && whole->makeFileReader != nullptr ? ReadWhole(*whole, bytes)
                                                                    : ReadByLine(head, bytes);
    }

private:
    LinesEnd ReadWhole(const Format& format, PeekStream& bytes) {
        const auto source = format.makeFileReader(bytes, mapper_);
        if (!TakeAll(*source))
            return Interrupted() ? TellInterrupted() : LinesEnd::stopped;
        if (Interrupted())
            return TellInterrupted();
        if (source->Error().empty())
            return LinesEnd::all;
        TellUnreadable(place_, source->Error());
        return LinesEnd::unreadable;
    }

    LinesEnd ReadByLine(const std::string& head, PeekStream& bytes) {
        LineFormats formats(mapper_, reading_.format);
        const std::size_t begin = head.find_first_not_of("\xEF\xBB\xBF \t\r\n");
        const bool isXml = begin != head.npos && head[begin] == '<';
        const auto take = [&](const std::string& line, const LinePlace& place) {
            place_.line = place.line;
            return formats.Give(line, place.line) ? TakeAll(formats) : taker_.TakeLine(line, place);
        };
        const LinesEnd end =
            ReadLinesOf(place_.file, bytes, isXml ? "</Event>" : "", problems_, take);
        if (end == LinesEnd::stopped || end == LinesEnd::interrupted)
            return end;
        formats.End();
        return TakeAll(formats) ? end : LinesEnd::stopped;
    }

    template <typename Source>
    bool TakeAll(Source& source) {
        while (!Interrupted() && source.Next(&item_)) {
            place_.line = item_.place;
            if (!taker_.TakeItem(item_, place_))
                return false;
        }
        return true;
    }

    LinesEnd TellInterrupted() const {
        Say("interrupted at " + place_.Text());
        return LinesEnd::interrupted;
    }

    LinePlace place_;
    const EventReading& reading_;
    Mapper mapper_;
    LineProblems& problems_;
    EventTaker& taker_;
    SourceItem item_;
};

}  // namespace

LinesEnd ReadEvents(const std::string& file, const EventReading& reading, InputFiles& files,
                    LineProblems& problems, EventTaker& taker) {
    return ReadParts(file, files, [&](const std::string& name, PeekStream& bytes) {
        return EventFile(name, reading, problems, taker).Read(bytes);
    });
}

}  // namespace zel
