#include "agent/web/countgaps.h"

#include <algorithm>
#include <charconv>

#include "records/eventtime.h"
#include "records/recordwriter.h"

namespace zel {

namespace {

constexpr std::size_t mostGaps = 10000;
constexpr const char* keptName = "gaps";

std::string_view TextOf(RecordReader& reader, std::string_view name) {
    const SourceField* const field = reader.Find(name);
    return field != nullptr ? std::string_view(field->text) : std::string_view();
}

}  // namespace

void ShownValues::Put(std::string_view column, std::vector<std::string> values) {
    constexpr std::size_t longest = 512, most = 200;
    std::erase_if(values, [](const std::string& value) { return value.size() > longest; });
    values.resize(std::min(values.size(), most));
    const std::lock_guard hold(mutex_);
    if (!values.empty())
        values_[std::string(column)] = std::move(values);
}

std::vector<std::string> ShownValues::Of(std::string_view column) {
    const std::lock_guard hold(mutex_);
    const auto found = values_.find(column);
    return found != values_.end() ? found->second : std::vector<std::string>();
}

std::optional<EventGap> GapReader::Read(const ZEL::QueryRow& row, const EventKeyHead& head) {
    if (head.object != "etw" || head.action != "generic" || !reader_.Read(row.text) ||
        TextOf(reader_, "artifacts.target.source.facility.value") != "zel")
        return std::nullopt;
    EventGap gap;
    gap.reason = TextOf(reader_, "unmapped.gap");
    const auto since = MillisecondsIn(TextOf(reader_, "unmapped.from"));
    const auto until = MillisecondsIn(TextOf(reader_, "unmapped.until"));
    if (gap.reason.empty() || !since || !until)
        return std::nullopt;
    gap.range = {*since, *until};
    const std::string_view events = TextOf(reader_, "unmapped.events");
    std::from_chars(events.data(), events.data() + events.size(), gap.events);
    return gap;
}

void GapGathering::Add(const ZEL::QueryRow& row, const EventKeyHead& head) {
    if (gaps_->size() >= mostGaps)
        return;
    if (auto gap = reader_.Read(row, head))
        gaps_->push_back(std::move(*gap));
}

// A notice counts as something that comes at any time (ArrivalChanges); no event lies at the begin
// of all times, so that notices alone end what is kept of it.
void GapGathering::Keep(const CountContext& context, const std::string& mark) const {
    constexpr std::size_t perGap = 96;
    context.cache.Keep(
        keptName,
        {mark, {EventSpan::noBegin, EventSpan::noBegin}, false, gaps_, gaps_->size() * perGap});
}

std::vector<EventGap> GapsOf(QuestionWork& work, const CountContext& context) {
    if (const auto known = context.cache.Find(keptName, context.changes))
        return *static_cast<const GapGathering::Gaps*>(known.get());
    const std::string mark = context.changes.Mark();
    std::string problem;
    auto question =
        EventQuestion::Make({{"object", "etw"}, {"action", "generic"}}, context.ask, &problem);
    GapGathering gathering;
    if (!question)
        return {};
    const ZEL::HRESULT result =
        question->WalkOnce(work, [&](const ZEL::QueryRow& row, const EventKeyHead& head) {
            gathering.Add(row, head);
            return ZEL::hr::ok;
        });
    if (Succeeded(result) && !work.IsOver())
        gathering.Keep(context, mark);
    return gathering.Found();
}

std::string GapsJson(const std::vector<EventGap>& gaps, const EventSpan& range) {
    std::string json;
    RecordWriter writer(&json);
    writer.BeginArray();
    for (const EventGap& gap : gaps) {
        if (gap.range.until < range.since || gap.range.since > range.until)
            continue;
        writer.BeginObject().Key("reason").Text(gap.reason);
        writer.Key("from").Text(TimeText(gap.range.since));
        writer.Key("until").Text(TimeText(gap.range.until)).Key("events");
        if (gap.events == 0)
            writer.Json("null").EndObject();
        else
            writer.Number(gap.events).EndObject();
    }
    writer.EndArray();
    return json;
}

}  // namespace zel
