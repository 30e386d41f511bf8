#include <algorithm>
#include <cstdio>
#include <set>

#include "common/jsontext.h"
#include "connection/agentrequest.h"
#include "connection/resultwords.h"
#include "connection/storelook.h"
#include "connection/storesession.h"
#include "zel/commands.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/narrator.h"
#include "zel/terminal/sizearg.h"

// The store chooses and deletes; it tells only whether its limit is honoured. What went is found by
// listing the directory before and after. A dry run foresees the same by the same rule: oldest
// first until the rest fits, but for folders that another process has open, which the store can't
// take.
//
// The store takes every folder below its directory for a database. A person who names the wrong
// directory would lose it, so the command looks for folders that are none before it asks.

namespace zel {

namespace {

constexpr std::uint64_t bytesPerMegabyte = 0x100000;

// The same for what will be and what was, so that a dry run looks like the purge that it foretells.
struct Outcome {
    std::vector<StoreFolder> folders;  // that went, or would go, oldest first
    std::uint64_t limitBytes = 0;
    std::uint64_t bytesBefore = 0;
    std::uint64_t bytesAfter = 0;
};

void PrintTable(const Outcome& outcome, bool isDryRun) {
    const auto going = std::count_if(outcome.folders.begin(), outcome.folders.end(),
                                     [](const StoreFolder& folder) { return !folder.inUse; });
    for (const StoreFolder& folder : outcome.folders)
        std::printf("%-12s %-10s %6s %10s%s\n", Printable(folder.name).c_str(),
                    Printable(folder.Date()).c_str(), folder.Kind(),
                    ReadableBytes(folder.size.bytes).c_str(),
                    folder.inUse ? "  in use, stays" : "");
    std::fflush(stdout);  // ahead of the summary, also where both go to one file
    Say(std::to_string(going) + (isDryRun ? " folder(s) would go; " : " folder(s) went; ") +
        ReadableBytes(outcome.bytesBefore) + " before, " + ReadableBytes(outcome.bytesAfter) +
        (isDryRun ? " then" : " now") + ", limit " + ReadableBytes(outcome.limitBytes));
}

void PrintJson(const Outcome& outcome, bool isDryRun) {
    std::string text = "{\"dry_run\":";
    text.append(isDryRun ? "true" : "false")
        .append(",\"limit_bytes\":" + std::to_string(outcome.limitBytes))
        .append(",\"bytes_before\":" + std::to_string(outcome.bytesBefore))
        .append(",\"bytes_after\":" + std::to_string(outcome.bytesAfter))
        .append(",\"folders\":[");
    const char* ahead = "";
    for (const StoreFolder& folder : outcome.folders) {
        text.append(ahead).append("{\"name\":" + wm::JsonString(folder.name));
        text.append(",\"kind\":\"").append(folder.Kind());
        text.append("\",\"files\":" + std::to_string(folder.size.files))
            .append(",\"bytes\":" + std::to_string(folder.size.bytes))
            .append(",\"in_use\":")
            .append(folder.inUse ? "true}" : "false}");
        ahead = ",";
    }
    std::printf("%s]}\n", text.c_str());
}

// A limit that is not kept is a loss in the sense of scripts: what they asked for was not reached.
int Tell(const Outcome& outcome, const PurgeOptions& options) {
    if (WantsTable(options.output))
        PrintTable(outcome, options.dryRun);
    else
        PrintJson(outcome, options.dryRun);
    if (outcome.bytesAfter <= outcome.limitBytes)
        return exitCode::done;
    Say(options.dryRun ? "the store would still be larger than its limit"
                       : "the store is still larger than its limit; -v tells why");
    return exitCode::losses;
}

// Folders in use stand in the list, marked, and their bytes stay.
Outcome Foresee(const StoreListing& before, std::uint64_t limitBytes) {
    Outcome outcome{{}, limitBytes, before.Total().bytes, before.Total().bytes};
    const std::size_t count = CountVictims(before, limitBytes);
    outcome.folders.assign(before.folders.begin(),
                           before.folders.begin() + static_cast<std::ptrdiff_t>(count));
    for (const StoreFolder& folder : outcome.folders)
        outcome.bytesAfter -= folder.inUse ? 0 : folder.size.bytes;
    return outcome;
}

// What was there before and is not any more. A folder that another process makes meanwhile counts
// towards the size and is in no list.
Outcome Compare(const StoreListing& before, const StoreListing& after, std::uint64_t limitBytes) {
    Outcome outcome{{}, limitBytes, before.Total().bytes, after.Total().bytes};
    std::set<std::string> left;
    for (const StoreFolder& folder : after.folders)
        left.insert(folder.name);
    for (const StoreFolder& folder : before.folders)
        if (!left.contains(folder.name))
            outcome.folders.push_back(folder);
    return outcome;
}

// A purge takes every folder as a database. Where some can't be, somebody may miss them.
bool HasForeign(const std::vector<std::string>& foreign) {
    if (foreign.empty())
        return false;
    Say(std::to_string(foreign.size()) +
        " folder(s) of the store are no databases, and a purge may "
        "delete them; with --including-foreign it goes on:");
    for (const std::string& name : foreign)
        Say("  " + Printable(name));
    return true;
}

// The store returns when the purge has ended, and gives success whatever came of it: what went is
// found by comparing.
bool RunInStore(std::uint32_t megabytes) {
    ForgetDefaultSettings();  // the outcome is published in a file that was named, and in no other
    StoreSession store(Terminal());
    if (!store.Open(AgentSocket().empty() ? StoreNeed::writable : StoreNeed::existing))
        return false;
    const ZEL::HRESULT result = store->Purge(megabytes);
    if (Failed(result))
        Say("the purge failed: " + Describe(static_cast<std::int32_t>(result)));
    return store.Close() && Succeeded(result);
}

// What a purge has left need not look like a store.
bool LookAgain(StoreLook* look) {
    if (!AgentSocket().empty())
        return LookAtStore(StoreNeed::reading, look);
    look->listing = ListStore(look->directory);
    return true;
}

}  // namespace

int RunPurge(const PurgeOptions& options) {
    std::uint32_t megabytes = 0;
    if (!ParseMegabytes(options.maxSize, &megabytes)) {
        Say("--max-size: \"" + options.maxSize + "\" is no size such as 500M, 2G or 0");
        return exitCode::usage;
    }
    StoreLook look;
    if (!LookAtStore(options.dryRun ? StoreNeed::reading : StoreNeed::existing, &look))
        return exitCode::noStore;
    if (!options.includingForeign && HasForeign(look.foreign))
        return exitCode::usage;
    const std::uint64_t limitBytes = megabytes * bytesPerMegabyte;
    const StoreListing before = look.listing;
    for (const std::string& name : before.unreadable)
        Say(Printable(name) + " can't be read, and counts nothing");
    if (!options.dryRun && (!RunInStore(megabytes) || !LookAgain(&look)))
        return exitCode::noStore;
    const int end = Tell(
        options.dryRun ? Foresee(before, limitBytes) : Compare(before, look.listing, limitBytes),
        options);
    return before.unreadable.empty() ? end : exitCode::losses;
}

}  // namespace zel
