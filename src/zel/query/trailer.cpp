#include "zel/query/trailer.h"

#include <algorithm>
#include <chrono>

#include "connection/resultwords.h"
#include "records/eventtime.h"
#include "records/recordwriter.h"
#include "zel/terminal/narrator.h"
#include "zel/terminal/textfit.h"

// The store tells rows and failures; which folders there are, and when they were written, only its
// directory does.

namespace zel {

namespace {

void WriteFailures(const std::vector<DatabaseError>& failures, RecordWriter& writer) {
    writer.Key("not_read").BeginArray();
    for (const DatabaseError& failure : failures)
        writer.BeginObject()
            .Key("folder")
            .Text(failure.folder)
            .Key("why")
            .Text(Describe(failure.lastResult))
            .EndObject();
    writer.EndArray();
}

const char* Truth(bool is) {
    return is ? "true" : "false";
}

void WriteHosts(const std::vector<FleetHostLook>& hosts, RecordWriter& writer) {
    writer.Key("hosts").BeginArray();
    for (const FleetHostLook& host : hosts)
        writer.BeginObject()
            .Key("host")
            .Text(host.host)
            .Key("events")
            .Number(host.events)
            .Key("oldest_receipt")
            .Text(host.oldestReceipt)
            .Key("newest_receipt")
            .Text(host.newestReceipt)
            .Key("silent")
            .Json(Truth(IsSilent(host)))
            .EndObject();
    writer.EndArray();
}

std::string WordsOfHosts(const std::vector<FleetHostLook>& hosts) {
    std::string text = std::to_string(hosts.size()) + " host(s)", silent, newest;
    for (const FleetHostLook& host : hosts) {
        newest = std::max(newest, host.newestReceipt);
        if (IsSilent(host))
            silent += "\nsilent: " + Escaped(host.host) + ", last receipt " + host.newestReceipt +
                      ", first " + host.oldestReceipt;
    }
    return text + (newest.empty() ? "" : ", last receipt " + newest) + silent;
}

Trailer BeginFleetTrailer(ZEL::IEventStore7& store) {
    Trailer trailer;
    trailer.isOfFleet = true;
    ZEL::CountedPtr<IFleetLook> look;
    trailer.isWhole = Succeeded(store.QueryInterface(iidFleetLook, look.ReceiveVoid())) &&
                      Succeeded(look->LookAtHosts(&trailer.hosts));
    return trailer;
}

}  // namespace

bool IsSilent(const FleetHostLook& host) {
    constexpr std::chrono::milliseconds longest = std::chrono::hours(1);
    const auto newest = MillisecondsIn(host.newestReceipt);
    const auto now =
        std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
    return !newest || now.time_since_epoch().count() - *newest > longest.count();
}

Trailer BeginTrailer(ZEL::IEventStore7& store) {
    if (IsFleetUsed())
        return BeginFleetTrailer(store);
    Trailer trailer;
    StoreLook look;
    if (!LookAtStore(StoreNeed::reading, &look))
        return trailer;
    for (const StoreFolder& folder : look.listing.folders) {
        trailer.isBeingWritten = trailer.isBeingWritten || folder.inUse;
        if (std::string_view(folder.Kind()) != "events")
            continue;
        if (trailer.folders++ == 0)
            trailer.oldest = folder.Date();
    }
    trailer.writtenUntil = look.writtenUntil;
    return trailer;
}

std::string Trailer::Json() const {
    std::string text;
    RecordWriter writer(&text);
    const auto optional = [&](const char* key, const std::string& value) {
        writer.Key(key);
        if (value.empty())
            writer.Json("null");
        else
            writer.Text(value);
    };
    writer.BeginObject().Key("trailer").BeginObject();
    writer.Key("found").Number(found).Key("rows").Number(rows);
    if (isOfFleet) {
        WriteHosts(hosts, writer);
    } else {
        writer.Key("folders").Number(folders);
        WriteFailures(failures, writer);
        optional("oldest", oldest);
        optional("written_until", writtenUntil);
        writer.Key("being_written").Json(Truth(isBeingWritten));
    }
    writer.Key("limited").Json(Truth(hasMore));
    writer.Key("complete").Json(Truth(isWhole));
    writer.EndObject().EndObject();
    return text;
}

std::string Trailer::Words() const {
    std::string text =
        std::to_string(found) + " event(s) found, " + std::to_string(rows) + " row(s) looked at, ";
    if (isOfFleet)
        return text + WordsOfHosts(hosts);
    text += std::to_string(folders) + " folder(s)";
    if (!oldest.empty())
        text += " from " + Escaped(oldest) + " on";
    if (!failures.empty())
        text += ", " + std::to_string(failures.size()) + " of them not read in full";
    if (!writtenUntil.empty())
        text += ", last written " + writtenUntil;
    return text + (isBeingWritten ? " by an agent that still writes" : "");
}

}  // namespace zel
