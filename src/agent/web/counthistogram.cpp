#include "agent/web/counthistogram.h"

#include <algorithm>
#include <cstdio>

#include "agent/web/counttimes.h"
#include "records/recordwriter.h"

// One walk over keys; texts are read only where a condition asks for them. Where the range has ends
// the width of a bucket follows from them; else it grows with the times that are met.

namespace zel {

namespace {

using Body = std::string;

std::string Seconds(std::int64_t milliseconds) {
    char text[32];
    std::snprintf(text, sizeof(text), "%.3f", static_cast<double>(milliseconds) / 1000);
    return text;
}

void WriteBuckets(const TimeCounts& counts, RecordWriter& writer) {
    writer.Key("buckets").BeginArray();
    for (const auto& [begin, ofNames] : counts.Steps()) {
        writer.BeginObject().Key("at").Text(TimeText(begin)).Key("counts").BeginObject();
        for (std::size_t i = 0; i < ofNames.size(); ++i)
            if (ofNames[i] != 0)
                writer.Key(counts.Names()[i]).Number(ofNames[i]);
        writer.EndObject().EndObject();
    }
    writer.EndArray();
}

// The ends of the answer: those that were asked for, or where the events are.
EventSpan EndsOf(const EventSpan& asked, const TimeCounts& counts) {
    EventSpan ends = asked;
    if (asked.since == EventSpan::noBegin)
        ends.since = counts.Total() != 0 ? counts.First() : asked.until;
    if (asked.until == EventSpan::noEnd)
        ends.until = counts.Total() != 0 ? counts.Last() : ends.since;
    return ends;
}

Body BodyOf(const TimeCounts& counts, const EventSpan& asked, const std::vector<EventGap>& gaps,
            bool isComplete, const std::string& notRead) {
    const EventSpan ends = EndsOf(asked, counts);
    const bool hasEnds = ends.since != EventSpan::noEnd;
    Body body;
    RecordWriter writer(&body);
    writer.BeginObject().Key("from");
    hasEnds ? writer.Text(TimeText(ends.since)) : writer.Json("null");
    writer.Key("until");
    hasEnds ? writer.Text(TimeText(ends.until)) : writer.Json("null");
    writer.Key("width").Json(Seconds(counts.Width())).Key("keys").BeginArray();
    for (const std::string& name : counts.Names())
        writer.Text(name);
    writer.EndArray();
    WriteBuckets(counts, writer);
    writer.Key("total").Number(counts.Total());
    writer.Key("gaps").Json(GapsJson(gaps, hasEnds ? ends : asked));
    writer.Key("complete").Json(isComplete ? "true" : "false");
    writer.Key("not_read").Json(notRead).EndObject();
    return body += '\n';
}

// A range with both ends fixes the width at once, so that nothing has to be taken together later.
TimeCounts CountsFor(const EventSpan& range, std::size_t buckets) {
    constexpr std::size_t roomPerBucket = 4;
    const bool hasEnds = range.since != EventSpan::noBegin && range.until != EventSpan::noEnd;
    const auto length = hasEnds ? (range.until - range.since) / static_cast<std::int64_t>(buckets)
                                : std::int64_t(0);
    return TimeCounts(buckets * roomPerBucket, std::max<std::int64_t>(length + 1, 1));
}

}  // namespace

void AnswerHistogram(QuestionWork& work, const CountContext& context, EventQuestion question,
                     const HistogramAsk& ask) {
    if (ask.byLevel)
        question.ReadEnrichments();
    std::string name;
    if (question.Name())
        name = "histogram " + std::to_string(ask.buckets) + (ask.byLevel ? " level " : " ") +
               *question.Name();
    if (const auto known = name.empty() ? nullptr : context.cache.Find(name, context.changes)) {
        work.Write(*static_cast<const Body*>(known.get()));
        return;
    }
    const std::string mark = context.changes.Mark();
    TimeCounts counts = CountsFor(question.Range(), ask.buckets);
    GapGathering gathering;
    const bool meetsGaps = question.IsOfAllEvents() && question.Range() == EventSpan();
    const ZEL::HRESULT result =
        question.WalkOnce(work, [&](const ZEL::QueryRow& row, const EventKeyHead& head) {
            if (meetsGaps)
                gathering.Add(row, head);
            counts.Add(head.time,
                       ask.byLevel ? HighestLevel(RuleMarksIn(row.enrichments)) : head.object);
            return ZEL::hr::ok;
        });
    counts.FitInto(ask.buckets);
    if (meetsGaps && Succeeded(result) && !work.IsOver())
        gathering.Keep(context, mark);
    const std::vector<EventGap> gaps = GapsOf(work, context);
    const std::string notRead = work.NotRead();
    const bool isComplete = Succeeded(result) && !work.IsOver() && notRead == "[]";
    const auto body =
        std::make_shared<const Body>(BodyOf(counts, question.Range(), gaps, isComplete, notRead));
    if (isComplete && !name.empty())
        context.cache.Keep(name,
                           {mark, question.Range(), question.HasEnrichments(), body, body->size()});
    work.Write(*body);
}

}  // namespace zel
