#include "agent/web/reporttext.h"

#include <algorithm>
#include <optional>

#include "agent/web/htmltext.h"
#include "common/hostservices.h"
#include "questions/narrowing.h"
#include "records/columns.h"
#include "records/recordreader.h"
#include "zelstore/keys/keyformat.h"

// A report is read by people who have neither the store nor the page: it says what was asked, how
// much was found, what of the time asked for the store can't tell, and then shows the events that
// somebody has chosen. It is a file that is passed on, so it holds no script, and its policy lets
// nothing run or be fetched but the one style that it brings, by its hash.

namespace zel {

namespace {

constexpr std::string_view style =
    "body{font:15px/1.5 system-ui,sans-serif;max-width:70em;margin:2em auto;padding:0 1em}"
    "table{border-collapse:collapse}th{text-align:left;vertical-align:top;padding-right:1.5em}"
    "td{overflow-wrap:anywhere}pre{overflow-x:auto;padding:.5em;border:1px solid #8886}"
    "section{border-top:1px solid #8886}.note{white-space:pre-wrap;font-weight:600}";
constexpr std::string_view styleHash = "P3IkZZUW1HXDNjxHbfiM1JOwb7qao5wSNgKz0vfSppM=";

std::string Row(std::string_view name, std::string_view html) {
    return "<tr><th>" + HtmlText(name) + "</th><td>" + std::string(html) + "</td></tr>\n";
}

std::string Bidi(std::string_view text) {
    return "<bdi>" + HtmlText(text) + "</bdi>";
}

std::string Head(const ReportAsk& ask) {
    const std::string title = HtmlText(ask.title.empty() ? "Report" : ask.title);
    return "<!doctype html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
           "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
           "style-src 'sha256-" +
           std::string(styleHash) + "'; base-uri 'none'; form-action 'none'\">\n<title>" + title +
           "</title>\n<style>" + std::string(style) + "</style>\n</head>\n<body>\n<h1>" + title +
           "</h1>\n";
}

std::string QuestionHtml(const ReportAsk& ask) {
    std::string rows = Row(
        "Made", HtmlText(wm::FormatUtc(wm::Clock().UtcNow())) + " by zel " + HtmlText(ask.version));
    rows += Row("Store", Bidi(ask.store));
    if (!ask.command.empty())
        rows += Row("Command", "<code>" + Bidi(ask.command) + "</code>");
    for (const auto& [name, value] : ask.parameters)
        rows += Row(name, Bidi(value));
    return "<h2>The question</h2>\n<table>\n" + rows + "</table>\n";
}

struct Found {
    std::uint64_t events = 0;
    std::int64_t first = 0, last = 0;
    bool isWhole = false;
};

Found Count(QuestionWork& work, EventQuestion& question) {
    Found found;
    const ZEL::HRESULT walked =
        question.WalkOnce(work, [&](const ZEL::QueryRow&, const EventKeyHead& head) {
            found.first = found.events == 0 ? head.time : std::min(found.first, head.time);
            found.last = found.events == 0 ? head.time : std::max(found.last, head.time);
            ++found.events;
            return ZEL::hr::ok;
        });
    found.isWhole = Succeeded(walked) && !work.IsOver();
    return found;
}

std::string GapsHtml(const std::vector<EventGap>& gaps, const EventSpan& range) {
    std::string rows;
    for (const EventGap& gap : gaps)
        if (gap.range.until >= range.since && gap.range.since <= range.until)
            rows += Row(gap.reason,
                        TimeText(gap.range.since) + " to " + TimeText(gap.range.until) +
                            (gap.events != 0 ? ", " + std::to_string(gap.events) + " events" : ""));
    return rows.empty() ? "<p>No gap is known in this time.</p>\n"
                        : "<p>Events are missing:</p>\n<table>\n" + rows + "</table>\n";
}

std::string CoverageHtml(QuestionWork& work, const CountContext& context, EventQuestion& question) {
    const EventSpan range = question.Range();
    const Found found = Count(work, question);
    std::string rows =
        Row("From", range.since == EventSpan::noBegin ? "the first event" : TimeText(range.since)) +
        Row("Until", range.until == EventSpan::noEnd ? "the last event" : TimeText(range.until)) +
        Row("Events that fit", std::to_string(found.events) +
                                   (found.isWhole ? "" : ", and the counting was broken off"));
    if (found.events != 0)
        rows += Row("These happened", TimeText(found.first) + " to " + TimeText(found.last));
    const std::string gaps = GapsHtml(GapsOf(work, context), range);
    const std::string notRead = work.NotRead();
    return "<h2>What it covers</h2>\n<table>\n" + rows + "</table>\n" + gaps +
           (notRead == "[]" ? "<p>All of the store could be read.</p>\n"
                            : "<p>Parts of the store could not be read:</p>\n<pre>" +
                                  HtmlOfJson(notRead) + "</pre>\n");
}

struct StoredEvent {
    std::string text, enrichments;
};

// The time in the key says where to look.
std::optional<StoredEvent> Read(QuestionWork& work, const std::string& key) {
    Narrowing narrowing;
    narrowing.since = narrowing.until = ZEL::BeginTimeOf(key);
    std::optional<StoredEvent> found;
    ZEL::IgnoreResult(work.Walk(R"({"event_query":{"events":[)" + SubQueryOf(narrowing) +
                                    R"(],"include_enrichments":true}})",
                                [&](const ZEL::QueryRow& row) {
                                    if (row.key != key)
                                        return ZEL::hr::ok;
                                    found = {std::string(row.text), std::string(row.enrichments)};
                                    return ZEL::hr::nothingToDo;
                                }),
                      "what was found counts");
    return found;
}

std::string EventHtml(const ReportAsk::Event& chosen, const std::optional<StoredEvent>& event) {
    std::string html = "<section>\n";
    RecordReader reader;
    const bool isRead = event && reader.Read(event->text);
    const auto time = isRead ? reader.Value(*FindColumn("time")) : std::nullopt;
    html += "<h3>" + HtmlText(time.value_or("An event")) + "</h3>\n";
    if (!chosen.note.empty())
        html += "<p class=\"note\">" + Bidi(chosen.note) + "</p>\n";
    if (!event)
        return html + "<p>It is not in the store, or could not be read.</p>\n<pre>" +
               HtmlText(chosen.key) + "</pre>\n</section>\n";
    std::string rows;
    for (const Column& column : Columns())
        if (const auto value =
                isRead && column.name != "event" ? reader.Value(column) : std::nullopt)
            rows += Row(column.name, Bidi(*value));
    html += "<table>\n" + rows + "</table>\n";
    if (!event->enrichments.empty())
        html += "<p>Stored with it:</p>\n<pre>" + HtmlOfJson(event->enrichments) + "</pre>\n";
    return html + "<details><summary>The record</summary>\n<pre>" + HtmlOfJson(event->text) +
           "</pre>\n</details>\n</section>\n";
}

}  // namespace

void WriteReport(QuestionWork& work, const CountContext& context, EventQuestion& question,
                 const ReportAsk& ask) {
    work.Write(Head(ask) + QuestionHtml(ask) + CoverageHtml(work, context, question));
    work.Write("<h2>Events</h2>\n" +
               std::string(ask.events.empty() ? "<p>None was chosen.</p>\n" : ""));
    for (const ReportAsk::Event& chosen : ask.events) {
        if (work.IsOver())
            break;
        work.Write(EventHtml(chosen, Read(work, chosen.key)));
    }
    work.Write(work.IsOver() ? "<p>The report was broken off here.</p>\n</body>\n</html>\n"
                             : "</body>\n</html>\n");
}

}  // namespace zel
