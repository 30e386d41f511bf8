#include "agent/notices.h"

#include <zlib.h>

#include <memory>

#include "common/hostservices.h"
#include "common/valuetext.h"
#include "records/conversions.h"
#include "records/recordwriter.h"

// A notice is written down before anything else is tried: it stands as a mark in the spool, and the
// commit that accepts it as an event takes the mark away. So it is neither lost nor there twice,
// whenever the process ends. The same notice has the same key: its number is made of its text.
//
// That nothing ran is known afterwards only. Marks tell when there was a last sign of life, at most
// ten seconds before the end where that came without warning, and whether the end was in order.

namespace zel {

namespace {

constexpr const char* noticePrefix = "notice ";
constexpr const char* statePrefix = "state ";
constexpr const char* aliveMark = "state alive";      // "TIME" or "TIME ended"
constexpr const char* stoppedMark = "state stopped";  // "TIME WHY"
constexpr std::string_view ended = " ended";
constexpr std::size_t timeLength = 24;
constexpr std::uint64_t betweenSigns = 10000;  // milliseconds

std::string Now() {
    return wm::FormatUtc(wm::Clock().UtcNow());
}

std::uint32_t NumberOf(std::string_view text) {
    return static_cast<std::uint32_t>(
        ::crc32_z(0, reinterpret_cast<const Bytef*>(text.data()), text.size()));
}

std::string MakeNotice(std::string_view what, const std::string& begin, const std::string& end,
                       std::uint64_t events, const Notices::Facts& facts) {
    std::string told;
    RecordWriter teller(&told);
    teller.BeginObject().Key("gap").Text(what).Key("from").Text(begin).Key("until").Text(end);
    teller.Key("events").Number(events);
    for (const auto& [name, text] : facts)
        teller.Key(name).Text(text);
    teller.EndObject();
    std::string record;
    RecordWriter writer(&record);
    writer.BeginObject().Key("artifacts").BeginObject().Key("target").BeginObject();
    writer.Key("object_type").Text("etw").Key("source").BeginObject();
    writer.Key("facility").TextPair("zel").EndObject().EndObject().EndObject();
    writer.Key("action").BeginArray().Text("generic").EndArray();
    writer.Key("begin_time").BeginObject().Key("value").Text(begin).EndObject();
    writer.Key("type_id").NumberPair(*TypeIdOf("etw"));
    writer.Key("seq_num").Number(NumberOf(told)).Key("unmapped").Json(told).EndObject();
    return record;
}

}  // namespace

void Notices::Add(std::string_view what, const std::string& begin, const std::string& end,
                  std::uint64_t events, const Facts& facts) {
    const std::string record = MakeNotice(what, begin, end, events, facts);
    const std::string name = noticePrefix + std::to_string(NumberOf(record));
    std::string problem;
    if (!spool_.Keep({{name, record}}, &problem))
        log_.SaySeldom(problem);
    Offer(name, record);
}

void Notices::Offer(const std::string& name, const std::string& record) {
    ZEL::CountedPtr<ZEL::IStringValue> key;
    const auto text = wm::ToValue(record);
    if (!text || Failed(store_.MakeKey(text.Get(), ZEL::keyKindEvent, key.Receive())))
        return;
    auto delivery = std::make_shared<Delivery>();
    delivery->source = intakeSource::service;
    delivery->items.push_back({"", wm::ToText(key.Get()), record});
    delivery->marks.push_back({name, ""});
    admission_.Submit(delivery, [this, name, record](Verdict verdict) {
        const std::lock_guard hold(mutex_);
        if (verdict == Verdict::noRoom)
            waiting_.emplace(name, record);
    });
}

void Notices::Begin(const std::string& lastSign) {
    std::string alive, stopped;
    for (const SpoolMark& mark : spool_.Marks(statePrefix))
        (mark.name == aliveMark ? alive : stopped) = mark.value;
    for (const SpoolMark& mark : spool_.Marks(noticePrefix))
        Offer(mark.name, mark.value);
    const bool isOrderly = alive.ends_with(ended);
    const std::string until = std::max(alive.substr(0, timeLength), lastSign);
    if (stopped.size() > timeLength)
        Add("intake stopped", stopped.substr(0, timeLength), until, 0,
            {{"why", stopped.substr(timeLength + 1)}});
    if (!until.empty())
        Add("service not running", until, Now(), 0,
            {{"end", isOrderly ? "in order" : "without warning"}});
    std::string problem;
    if (!stopped.empty() && !spool_.Keep({{stoppedMark, ""}}, &problem))
        log_.SaySeldom(problem);
    Sign("");
}

void Notices::Sign(std::string_view how) {
    std::string problem;
    if (!spool_.Keep({{aliveMark, Now().append(how)}}, &problem))
        log_.SaySeldom(problem);
    nextSign_ = wm::Clock().TickCount64() + betweenSigns;
}

void Notices::Look() {
    if (wm::Clock().TickCount64() >= nextSign_)
        Sign("");
    std::map<std::string, std::string> waiting;
    {
        const std::lock_guard hold(mutex_);
        waiting.swap(waiting_);
    }
    for (const auto& [name, record] : waiting)
        Offer(name, record);
}

void Notices::End() {
    Sign(ended);
}

void Notices::SetStopped(std::string_view why) {
    std::string problem;
    if (!spool_.Keep({{stoppedMark, Now().append(" ").append(why)}}, &problem))
        log_.SaySeldom(problem);
}

void Notices::SetRunning() {
    std::string problem;
    for (const SpoolMark& mark : spool_.Marks(stoppedMark))
        if (mark.value.size() > timeLength)
            Add("intake stopped", mark.value.substr(0, timeLength), Now(), 0,
                {{"why", mark.value.substr(timeLength + 1)}});
    if (!spool_.Keep({{stoppedMark, ""}}, &problem))
        log_.SaySeldom(problem);
}

}  // namespace zel
