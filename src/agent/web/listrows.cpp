#include "agent/web/listrows.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <functional>

#include "agent/web/counttimes.h"
#include "agent/web/listbest.h"
#include "agent/web/listnewest.h"
#include "records/recordwriter.h"

// A page of a list, though the store walks from the oldest event on, folder by folder, and knows no
// numbers of rows.
//
// Oldest first: of each folder the first rows behind the position are looked at, as many as the
// page needs; a folder is left where it holds nothing that is older than what was found.
//
// Newest first: parts of the range from the newest back (listnewest.cpp). How long a page was goes
// into the position, so that the next one begins with that.
//
// Far jumps: one walk counts the rows by time, in bounded memory. The counts tell in which step of
// time the row stands; from there on it is a page with few rows to pass over. They are kept as
// histograms are.

namespace zel {

namespace {

using ZEL::HRESULT;
namespace hr = ZEL::hr;

constexpr std::uint64_t farJump = 200;    // rows
constexpr std::size_t mostSteps = 16384;  // of time that rows are counted by

class ListRun {
public:
    ListRun(QuestionWork& work, const CountContext& context, EventQuestion& question,
            const ListAsk& ask)
        : work_(work), context_(context), question_(question), ask_(ask), skip_(ask.skip) {}

    void Run();

private:
    bool IsBehind(const EventPlace& place) const {
        return !ask_.behind || (ask_.newestFirst ? place < *ask_.behind : place > *ask_.behind);
    }
    // What is left of the range behind the position.
    EventSpan Rest() const;
    bool Jump(EventSpan* rest);
    std::shared_ptr<const TimeCounts> Times();
    std::uint64_t CountIn(const EventSpan& part);
    void CollectOldest(const EventSpan& rest, BestRows& rows);
    void CollectNewest(const EventSpan& rest, BestRows& rows);
    void Write(BestRows& rows);

    QuestionWork& work_;
    const CountContext& context_;
    EventQuestion& question_;
    const ListAsk& ask_;
    std::uint64_t skip_;
    std::int64_t window_ = 0;
    HRESULT result_ = hr::ok;
};

EventSpan ListRun::Rest() const {
    EventSpan rest = question_.Range();
    if (ask_.behind && ask_.newestFirst)
        rest.until = std::min(rest.until, ask_.behind->time);
    else if (ask_.behind)
        rest.since = std::max(rest.since, ask_.behind->time);
    return rest;
}

std::shared_ptr<const TimeCounts> ListRun::Times() {
    const std::string name = question_.Name() ? "times " + *question_.Name() : "";
    if (const auto known = name.empty() ? nullptr : context_.cache.Find(name, context_.changes))
        return std::static_pointer_cast<const TimeCounts>(known);
    const std::string mark = context_.changes.Mark();
    const auto times = std::make_shared<TimeCounts>(mostSteps);
    result_ = question_.WalkOnce(work_, [&](const ZEL::QueryRow&, const EventKeyHead& head) {
        times->Add(head.time, "");
        return hr::ok;
    });
    if (Succeeded(result_) && !work_.IsOver() && !name.empty())
        context_.cache.Keep(
            name, {mark, question_.Range(), question_.HasEnrichments(), times, times->Bytes()});
    return times;
}

// Of rows behind the position, in a part of the range that holds few.
std::uint64_t ListRun::CountIn(const EventSpan& part) {
    std::map<EventPlace, bool> places;
    result_ = question_.Walk(work_, part, [&](const ZEL::QueryRow& row, const EventKeyHead& head) {
        const EventPlace place = EventKeyReader::PlaceOf(head, row.key);
        if (IsBehind(place))
            places.emplace(place, true);
        return hr::ok;
    });
    return places.size();
}

// Moves the end of the rest over whole steps of time, as long as they hold less than is passed
// over. The step in which the position stands is counted anew. False when nothing is left.
bool ListRun::Jump(EventSpan* rest) {
    const auto times = Times();
    struct Step {
        std::int64_t begin;
        std::uint64_t count;
    };
    std::vector<Step> steps;
    for (const auto& [begin, counts] : times->Steps())
        steps.push_back({begin, counts.front()});
    if (ask_.newestFirst)
        std::reverse(steps.begin(), steps.end());
    for (const auto& [begin, counted] : steps) {
        const std::int64_t end = begin + times->Width() - 1;
        if (end < rest->since || begin > rest->until)
            continue;
        const EventSpan part{std::max(begin, rest->since), std::min(end, rest->until)};
        const bool isCounted = !ask_.behind || !EventSpan{begin, end}.Holds(ask_.behind->time);
        const std::uint64_t count = isCounted ? counted : CountIn(part);
        if (skip_ < count || work_.IsOver())
            return true;
        skip_ -= count;
        if (ask_.newestFirst)
            rest->until = part.since - 1;
        else
            rest->since = part.until + 1;
    }
    return false;
}

void ListRun::CollectOldest(const EventSpan& rest, BestRows& rows) {
    result_ = question_.Walk(work_, rest, [&](const ZEL::QueryRow& row, const EventKeyHead& head) {
        if (rows.IsBeyond(head.time, head.sequence))
            return hr::nothingToDo;
        const EventPlace place = EventKeyReader::PlaceOf(head, row.key);
        if (IsBehind(place))
            rows.Add(place, row);
        return hr::ok;
    });
}

// Twice the length of what was found is likely to hold the next page.
void ListRun::CollectNewest(const EventSpan& rest, BestRows& rows) {
    NewestRows newest(work_, question_, ask_.behind);
    result_ = newest.Collect(rest, skip_ + ask_.most + 1, ask_.window, &rows);
    window_ = 2 * rows.Length() + 1;
}

void ListRun::Write(BestRows& best) {
    const bool isCut = best.IsCut();
    const ListedEvents rows = best.Take();
    RecordReader reader;
    std::string lines;
    std::uint64_t passed = 0;
    std::size_t written = 0;
    const auto writeRow = [&](const EventPlace& place, const ListedEvent& event) {
        if (passed++ < skip_ || written == ask_.most)
            return;
        ++written;
        RecordWriter writer(&lines);
        writer.BeginObject().Key("position").Text(ToText(place) + "." + std::to_string(window_));
        writer.Key("key").Text(event.key).Key("cells").Json(ask_.cells.Write(event, reader));
        writer.EndObject();
        lines += '\n';
    };
    if (ask_.newestFirst)
        std::for_each(rows.rbegin(), rows.rend(),
                      [&](const auto& row) { writeRow(row.first, row.second); });
    else
        for (const auto& [place, event] : rows)
            writeRow(place, event);
    const bool isWhole = Succeeded(result_) && !work_.IsOver();
    const bool hasMore = isCut || !isWhole || passed > skip_ + written;
    lines.append("{\"end\":true,\"more\":").append(hasMore ? "true" : "false");
    lines.append(",\"complete\":").append(isWhole ? "true" : "false");
    lines.append(",\"not_read\":").append(work_.NotRead()).append("}\n");
    work_.Write(lines);
}

void ListRun::Run() {
    if (ask_.cells.NeedEnrichments())
        question_.ReadEnrichments();
    EventSpan rest = Rest();
    const bool isThere = skip_ < farJump || Jump(&rest);
    BestRows rows(skip_ + ask_.most + 1, ask_.newestFirst);
    if (isThere && !work_.IsOver()) {
        if (ask_.newestFirst)
            CollectNewest(rest, rows);
        else
            CollectOldest(rest, rows);
    }
    Write(rows);
}

}  // namespace

bool ReadListPosition(std::string_view text, ListAsk* ask) {
    if (text.empty())
        return true;
    const std::size_t dot = text.rfind('.');
    if (dot == text.npos)
        return false;
    ask->behind = ReadEventPlace(text.substr(0, dot));
    const std::string_view window = text.substr(dot + 1);
    const auto read = std::from_chars(window.data(), window.data() + window.size(), ask->window);
    return ask->behind && read.ec == std::errc() && read.ptr == window.data() + window.size() &&
           ask->window >= 0 && ask->window <= EventSpan::noEnd - EventSpan::noBegin;
}

void AnswerList(QuestionWork& work, const CountContext& context, EventQuestion question,
                const ListAsk& ask) {
    ListRun(work, context, question, ask).Run();
}

// The nearest are those at the begin of an order by distance.
void AnswerAround(QuestionWork& work, EventQuestion question, const AroundAsk& ask) {
    if (ask.cells.NeedEnrichments())
        question.ReadEnrichments();
    BestRows nearest(ask.most, false);
    EventKeyReader keys;
    bool hasMore = false;
    const EventSpan around{ask.time - ask.distance, ask.time + ask.distance};
    const HRESULT result =
        question.Walk(work, around, [&](const ZEL::QueryRow& row, const EventKeyHead& head) {
            if (ask.fits && !ask.fits(row.text))
                return hr::ok;
            EventPlace place = EventKeyReader::PlaceOf(head, row.key);
            place.time = std::abs(place.time - ask.time);
            hasMore = hasMore || nearest.Count() >= ask.most;
            nearest.Add(place, row);
            return hr::ok;
        });
    ListedEvents rows;
    for (auto& [place, event] : nearest.Take()) {
        const EventPlace own = EventKeyReader::PlaceOf(keys.Read(event.key), event.key);
        rows.emplace(own, std::move(event));
    }
    RecordReader reader;
    std::string lines;
    for (const auto& [place, event] : rows) {
        RecordWriter writer(&lines);
        writer.BeginObject().Key("position").Text(ToText(place) + ".0").Key("key").Text(event.key);
        writer.Key("cells").Json(ask.cells.Write(event, reader)).EndObject();
        lines += '\n';
    }
    const bool isWhole = Succeeded(result) && !work.IsOver();
    lines.append("{\"end\":true,\"more\":").append(hasMore || !isWhole ? "true" : "false");
    lines.append(",\"not_read\":").append(work.NotRead()).append("}\n");
    work.Write(lines);
}

}  // namespace zel
