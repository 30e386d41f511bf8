#include <ctime>

#include "agent/asking/questions.h"
#include "agent/fleetpart.h"
#include "agent/following/followers.h"
#include "agent/livehunt.h"
#include "agent/parts.h"
#include "common/hostservices.h"
#include "records/recordwriter.h"

// What the service tells of itself, twice: for programs that ask once, and for scrapers. Both take
// the ledger at one moment, so the equation holds in each answer.

namespace zel {

namespace {

struct Family {
    const char* name;
    const char* type;
    const char* help;
};

void Head(const Family& family, std::string* text) {
    *text += std::string("# HELP ") + family.name + " " + family.help + "\n# TYPE " + family.name +
             " " + family.type + "\n";
}

void Sample(const Family& family, std::uint64_t value, std::string* text) {
    Head(family, text);
    *text += std::string(family.name) + " " + std::to_string(value) + "\n";
}

double Seconds(std::uint64_t sinceTick) {
    return sinceTick == 0 ? 0.0
                          : static_cast<double>(wm::Clock().TickCount64() - sinceTick) / 1000.0;
}

}  // namespace

std::vector<std::string_view> Degraded(const AgentParts& parts) {
    constexpr std::uint64_t tooLongMs = 60000;
    std::vector<std::string_view> words;
    if (!parts.feeder.HasReplayed())
        words.emplace_back("replaying");
    if (!parts.admission.HasDiskRoom())
        words.emplace_back("disk full");
    else if (!parts.admission.HasRoom())
        words.emplace_back("spool full");
    if (parts.feeder.StoreFails())
        words.emplace_back("store fails");
    if (parts.feeder.SilentMs() > tooLongMs)
        words.emplace_back("stalled");
    return words;
}

namespace {

void WriteLedger(const AgentParts& parts, const Ledger& ledger, RecordWriter& writer) {
    std::uint64_t rejected = 0;
    std::map<std::string_view, std::uint64_t> byReason, bySource;
    for (const auto& [cause, count] : parts.log.Rejected()) {
        rejected += count;
        bySource[cause.first] += count;
        byReason[cause.second] += count;
    }
    writer.Key("ledger").BeginObject();
    writer.Key("accepted").Number(ledger.accepted).Key("stored").Number(ledger.stored);
    writer.Key("waiting").Number(ledger.waiting).Key("lost").Number(ledger.lost);
    writer.Key("purged").Number(ledger.purged).EndObject();
    writer.Key("enrichments").BeginObject().Key("waiting").Number(ledger.waitingEnrichments);
    writer.Key("lost").Number(parts.log.lostEnrichments).EndObject();
    writer.Key("notices").Number(ledger.notices);
    writer.Key("duplicate").Number(parts.log.duplicates);
    writer.Key("rejected").Number(rejected).Key("rejected_by").BeginObject();
    for (const auto& [reason, count] : byReason)
        writer.Key(reason).Number(count);
    writer.EndObject();
    const auto accepted = parts.log.Accepted();
    writer.Key("sources").BeginObject();
    for (const std::string_view source : intakeSource::all) {
        const auto found = accepted.find(source);
        writer.Key(source).BeginObject().Key("accepted");
        writer.Number(found != accepted.end() ? found->second : 0);
        writer.Key("rejected").Number(bySource[source]).EndObject();
    }
    writer.EndObject();
}

void WriteStore(const AgentParts& parts, const Ledger& ledger, RecordWriter& writer) {
    writer.Key("spool").BeginObject().Key("path").Text(parts.config->spoolPath);
    writer.Key("bytes").Number(ledger.waitingBytes).Key("max_bytes");
    writer.Number(parts.config->spoolMaxSize)
        .Key("held_requests")
        .Number(parts.admission.Waiting());
    writer.Key("ids").Number(ledger.ids).Key("max_ids").Number(parts.config->idsKept);
    writer.Key("ids_age_seconds").Number(parts.config->idsAge).EndObject();
    const Questions::Counts questions = parts.questions.Count();
    writer.Key("questions").BeginObject().Key("asked").Number(questions.asked);
    writer.Key("refused").Number(questions.refused).Key("running").Number(questions.running);
    writer.Key("queued").Number(questions.waiting).EndObject();
    const Followers::Counts followers = parts.followers.Count();
    writer.Key("followers").BeginObject().Key("running").Number(followers.running);
    writer.Key("refused").Number(followers.refused).Key("events").Number(followers.events);
    writer.Key("gaps").Number(followers.gaps).EndObject();
    writer.Key("store").BeginObject().Key("path").Text(parts.config->storePath);
    writer.Key("bytes").Number(parts.disk.storeBytes).Key("max_bytes");
    writer.Number(parts.config->storeMaxSize).Key("folders").Number(parts.disk.folders);
    writer.Key("disk_free_bytes").Number(parts.disk.freeBytes);
    writer.Key("purged_folders").Number(parts.log.purgedFolders);
    writer.Key("purged_bytes").Number(parts.log.purgedBytes).EndObject();
}

}  // namespace

namespace {

void WriteHunt(const AgentParts& parts, const Ledger& ledger, RecordWriter& writer) {
    const RuleWatch::Counts hunt = parts.hunt.Hits();
    const Alerts::Counts alerts = parts.hunt.Told();
    writer.Key("hunt").BeginObject().Key("rules").Number(hunt.rules);
    writer.Key("refused").Number(parts.hunt.Refused()).Key("tested").Number(hunt.tested);
    writer.Key("untested").Number(hunt.untested).Key("given_up").Number(hunt.givenUp);
    writer.Key("hits").BeginObject();
    for (std::size_t i = 0; i < hunt.hits.size(); ++i)
        writer.Key(ruleLevels[i]).Number(hunt.hits[i]);
    writer.EndObject().Key("alerts_waiting").Number(ledger.waitingHits);
    writer.Key("alerts_told").Number(alerts.told).Key("alerts_failed").Number(alerts.failed);
    writer.Key("alerts_dropped").Number(hunt.hitsNotGiven).EndObject();
}

void PutHunt(const AgentParts& parts, const Ledger& ledger, std::string* text) {
    const RuleWatch::Counts hunt = parts.hunt.Hits();
    const Alerts::Counts alerts = parts.hunt.Told();
    Sample({"zel_rules", "gauge", "Rules that are run on what comes in."}, hunt.rules, text);
    Sample({"zel_rules_tested_total", "counter", "Events that were tested."}, hunt.tested, text);
    Sample({"zel_rules_untested_total", "counter", "Events that rules could not be run on."},
           hunt.untested, text);
    Sample({"zel_alerts_waiting", "gauge", "Hits that wait to be told."}, ledger.waitingHits, text);
    Sample({"zel_alerts_told_total", "counter", "Hits that were told."}, alerts.told, text);
    Sample({"zel_alerts_failed_total", "counter", "Tries to tell one that failed."}, alerts.failed,
           text);
    Sample({"zel_alerts_dropped_total", "counter", "Hits that were too many to be told."},
           hunt.hitsNotGiven, text);
    Head({"zel_rule_hits_total", "counter", "Hits of rules, by level."}, text);
    for (std::size_t i = 0; i < hunt.hits.size(); ++i)
        text->append("zel_rule_hits_total{level=\"").append(ruleLevels[i]) +=
            "\"} " + std::to_string(hunt.hits[i]) + "\n";
}

void WriteFleet(const AgentParts& parts, RecordWriter& writer) {
    const FleetPart::Counts fleet = parts.fleet.Count();
    if (!fleet.isNamed)
        return;
    writer.Key("fleet").BeginObject().Key("url").Text(fleet.fleet).Key("host").Text(fleet.host);
    writer.Key("position").Text(fleet.position).Key("failing").Text(fleet.failing);
    writer.Key("sent").Number(fleet.sent).Key("refused").Number(fleet.refused);
    writer.Key("missed").Number(fleet.missed).Key("behind_seconds").Number(fleet.behindMs / 1000);
    writer.EndObject();
}

void PutFleet(const AgentParts& parts, std::string* text) {
    const FleetPart::Counts fleet = parts.fleet.Count();
    if (!fleet.isNamed)
        return;
    Sample({"zel_fleet_failing", "gauge", "Whether nothing can be sent to the fleet just now."},
           fleet.failing.empty() ? 0 : 1, text);
    Sample({"zel_fleet_behind_seconds", "gauge", "Since the fleet had all."}, fleet.behindMs / 1000,
           text);
    Sample({"zel_fleet_sent_total", "counter", "Rows that the fleet has taken, repeats included."},
           fleet.sent, text);
    Sample({"zel_fleet_refused_total", "counter", "Rows that it refused, which were put aside."},
           fleet.refused, text);
    Sample({"zel_fleet_missed_total", "counter", "Events, at most, that were purged unsent."},
           fleet.missed, text);
}

}  // namespace

std::string StatusJson(const AgentParts& parts) {
    const Ledger ledger = parts.spool.Account();
    const auto degraded = Degraded(parts);
    std::string text;
    RecordWriter writer(&text);
    writer.BeginObject().Key("version").Text(parts.version);
    writer.Key("started")
        .Text(parts.started)
        .Key("ready")
        .Json(degraded.empty() ? "true" : "false");
    writer.Key("degraded").BeginArray();
    for (const std::string_view word : degraded)
        writer.Text(word);
    writer.EndArray();
    WriteLedger(parts, ledger, writer);
    WriteStore(parts, ledger, writer);
    WriteHunt(parts, ledger, writer);
    WriteFleet(parts, writer);
    writer.Key("connections").Number(parts.log.connections);
    writer.Key("page_connections").Number(parts.log.webConnections);
    writer.Key("requests_in_flight").Number(parts.log.inFlight);
    writer.Key("last_messages").BeginArray();
    for (const AgentLog::Entry& entry : parts.log.Last())
        writer.BeginObject().Key("time").Text(entry.time).Key("text").Text(entry.text).EndObject();
    writer.EndArray().EndObject();
    return text + "\n";
}

std::string MetricsText(const AgentParts& parts) {
    const Ledger ledger = parts.spool.Account();
    const Questions::Counts questions = parts.questions.Count();
    const Followers::Counts followers = parts.followers.Count();
    std::string text;
    Head({"zel_build_info", "gauge", "The version."}, &text);
    text += "zel_build_info{version=\"" + parts.version + "\"} 1\n";
    const struct {
        Family family;
        std::uint64_t value;
    } rows[] = {
        {{"zel_start_time_seconds", "gauge", "When the service started."}, parts.startedUnix},
        {{"zel_ready", "gauge", "Whether all is well."}, Degraded(parts).empty() ? 1U : 0U},
        {{"zel_events_accepted_total", "counter", "Events that were acknowledged, ever."},
         ledger.accepted},
        {{"zel_events_stored_total", "counter", "Of these: those that reached the store."},
         ledger.stored + ledger.purged},
        {{"zel_events_lost_total", "counter", "Of these: those that were lost."}, ledger.lost},
        {{"zel_events_purged_total", "counter", "Of those stored: those that were purged."},
         ledger.purged},
        {{"zel_events_duplicate_total", "counter", "Events whose id was known."},
         parts.log.duplicates},
        {{"zel_spool_events", "gauge", "Events that wait in the spool."}, ledger.waiting},
        {{"zel_spool_bytes", "gauge", "What waits in the spool."}, ledger.waitingBytes},
        {{"zel_spool_limit_bytes", "gauge", "How much may wait there."},
         parts.config->spoolMaxSize},
        {{"zel_spool_enrichments", "gauge", "Enrichments that wait in the spool."},
         ledger.waitingEnrichments},
        {{"zel_enrichments_lost_total", "counter", "Enrichments that the store could not write."},
         parts.log.lostEnrichments},
        {{"zel_held_requests", "gauge", "Requests that wait for room or for the disk."},
         parts.admission.Waiting()},
        {{"zel_known_ids", "gauge", "Ids that are remembered."}, ledger.ids},
        {{"zel_store_bytes", "gauge", "What the store takes."}, parts.disk.storeBytes},
        {{"zel_store_limit_bytes", "gauge", "What it may take; 0: no limit."},
         parts.config->storeMaxSize},
        {{"zel_folders", "gauge", "Folders of the store."}, parts.disk.folders},
        {{"zel_purged_bytes_total", "counter", "What purges have deleted."}, parts.log.purgedBytes},
        {{"zel_disk_free_bytes", "gauge", "Free space of the tighter volume."},
         parts.disk.freeBytes},
        {{"zel_connections", "gauge", "Connections that are open."}, parts.log.connections},
        {{"zel_page_connections", "gauge", "The same of the page."}, parts.log.webConnections},
        {{"zel_http_in_flight_requests", "gauge", "Requests that are being answered."},
         parts.log.inFlight},
        {{"zel_questions_total", "counter", "Questions that were asked."}, questions.asked},
        {{"zel_questions_refused_total", "counter", "Of these: those that were too many."},
         questions.refused},
        {{"zel_questions_running", "gauge", "Questions that are worked on."}, questions.running},
        {{"zel_followers", "gauge", "Readers that events are handed on to."}, followers.running},
        {{"zel_followers_refused_total", "counter", "Readers that were too many."},
         followers.refused},
        {{"zel_followed_events_total", "counter", "Events that were handed on."}, followers.events},
        {{"zel_followed_gaps_total", "counter", "Gaps that followers were told of."},
         followers.gaps},
        {{"zel_questions_waiting", "gauge", "Questions that wait for that."}, questions.waiting},
    };
    for (const auto& row : rows)
        Sample(row.family, row.value, &text);
    PutHunt(parts, ledger, &text);
    PutFleet(parts, &text);
    Head({"zel_last_flush_age_seconds", "gauge", "Since the store last took from the spool."},
         &text);
    text += "zel_last_flush_age_seconds " + std::to_string(Seconds(parts.feeder.LastFlushTick())) +
            "\n";
    Head({"zel_events_taken_total", "counter", "Events that were accepted, by their way in."},
         &text);
    for (const auto& [source, count] : parts.log.Accepted())
        text.append("zel_events_taken_total{source=\"").append(source).append("\"} ") +=
            std::to_string(count) + "\n";
    Head({"zel_events_rejected_total", "counter", "Events that were no records, by reason."},
         &text);
    for (const auto& [cause, count] : parts.log.Rejected())
        text.append("zel_events_rejected_total{source=\"")
            .append(cause.first)
            .append("\",reason=\"")
            .append(cause.second)
            .append("\"} ") += std::to_string(count) + "\n";
    Head({"zel_http_requests_total", "counter", "Requests by route and answer; 0: cut."}, &text);
    for (const auto& [route, count] : parts.log.Requests())
        text.append("zel_http_requests_total{route=\"").append(route.first) +=
            "\",code=\"" + std::to_string(route.second) + "\"} " + std::to_string(count) + "\n";
    return text;
}

}  // namespace zel
