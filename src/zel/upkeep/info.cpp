#include <cstdio>

#include "common/jsontext.h"
#include "common/valuetext.h"
#include "connection/agentrequest.h"
#include "connection/resultwords.h"
#include "connection/storelook.h"
#include "connection/storesession.h"
#include "zel/commands.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/narrator.h"
#include "zel/upkeep/foldercheck.h"

// Two views beside each other: the directory, as anyone can list it, and what the store itself says
// of its oldest date, its size and its failures. Both go into one StoreInfo, from which table and
// JSON are printed, so that they can't tell different things.

namespace zel {

namespace {

struct StoreInfo {
    std::string directory;
    StoreListing listing;
    std::string oldestDate;            // YYYYMMDD; empty for an empty store
    std::uint64_t estimatedBytes = 0;  // as the store reckons
    std::vector<DatabaseError> errors;
};

// The store's own reads leave checksums out and pass damage over, so this looks by itself. A
// damaged folder is told at once and stands in the result too, as a failure to read; the check goes
// on with the next.
void CheckAll(StoreInfo* info) {
    constexpr std::uint32_t read = 2;
    for (const StoreFolder& folder : info->listing.folders) {
        if (Interrupted())
            return;
        ShowProgress("checking " + Printable(folder.name));
        std::string why;
        const std::int32_t result = CheckFolder(info->directory + "/" + folder.name, &why);
        if (result == 0)
            continue;
        Say("folder " + Printable(folder.name) + ": " + Printable(why));
        info->errors.push_back({folder.name, read, 1, result});
    }
    ClearProgress();
}

bool AskStore(bool check, StoreInfo* info) {
    StoreSession store(Terminal());
    if (!store.Open(StoreNeed::reading))
        return false;
    ZEL::CountedPtr<ZEL::IStringValue> date;
    const ZEL::HRESULT result = store->GetOldestDate(date.Receive(), &info->estimatedBytes);
    if (Failed(result)) {
        Say("the oldest date can't be told: " + Describe(static_cast<std::int32_t>(result)));
        return false;
    }
    info->oldestDate = wm::ToText(date.Get());
    info->errors = store.TakeDatabaseErrors();
    if (check)
        CheckAll(info);
    return true;
}

// For reading: names are cut by nobody and sizes are rounded. The exact bytes stand in the line of
// totals.
void PrintTable(const StoreInfo& info) {
    std::printf("%-12s %-10s %6s %-6s %7s %12s\n", "FOLDER", "DATE", "NUMBER", "KIND", "FILES",
                "SIZE");
    for (const StoreFolder& folder : info.listing.folders)
        std::printf("%-12s %-10s %6s %-6s %7llu %12s%s\n", Printable(folder.name).c_str(),
                    Printable(folder.Date()).c_str(), folder.Number().c_str(), folder.Kind(),
                    static_cast<unsigned long long>(folder.size.files),
                    ReadableBytes(folder.size.bytes).c_str(), folder.inUse ? "  in use" : "");
    const FolderSize total = info.listing.Total();
    std::printf("%zu folder(s), %llu file(s), %s (%llu bytes)\n", info.listing.folders.size(),
                static_cast<unsigned long long>(total.files), ReadableBytes(total.bytes).c_str(),
                static_cast<unsigned long long>(total.bytes));
    std::printf("oldest date: %s\n",
                info.oldestDate.empty() ? "none" : Printable(info.oldestDate).c_str());
    for (const DatabaseError& error : info.errors)
        std::printf("%s\n", Printable(error.Text()).c_str());
}

// Numbers in bytes, as a reader of this form reckons for itself.
std::string FolderJson(const StoreFolder& folder) {
    return "{\"name\":" + wm::JsonString(folder.name) +
           ",\"date\":" + wm::JsonString(folder.Date()) +
           ",\"number\":" + wm::JsonString(folder.Number()) + ",\"kind\":\"" + folder.Kind() +
           "\",\"files\":" + std::to_string(folder.size.files) +
           ",\"bytes\":" + std::to_string(folder.size.bytes) +
           ",\"in_use\":" + (folder.inUse ? "true}" : "false}");
}

std::string ErrorJson(const DatabaseError& error) {
    char result[16];
    std::snprintf(result, sizeof(result), "0x%08X", static_cast<unsigned>(error.lastResult));
    return "{\"folder\":" + wm::JsonString(error.folder) + ",\"operation\":\"" + error.Operation() +
           "\",\"count\":" + std::to_string(error.count) + ",\"last_result\":\"" + result + "\"}";
}

template <typename List, typename ToJson>
std::string JsonArray(const List& list, ToJson toJson) {
    std::string text = "[";
    for (const auto& item : list)
        text.append(text.size() > 1 ? "," : "").append(toJson(item));
    return text + "]";
}

void PrintJson(const StoreInfo& info) {
    const FolderSize total = info.listing.Total();
    std::printf(
        "{\"store\":%s,\"folders\":%s,\"files\":%llu,\"bytes\":%llu,\"oldest_date\":%s,"
        "\"estimated_bytes\":%llu,\"errors\":%s}\n",
        wm::JsonString(info.directory).c_str(), JsonArray(info.listing.folders, FolderJson).c_str(),
        static_cast<unsigned long long>(total.files), static_cast<unsigned long long>(total.bytes),
        wm::JsonString(info.oldestDate).c_str(),
        static_cast<unsigned long long>(info.estimatedBytes),
        JsonArray(info.errors, ErrorJson).c_str());
}

}  // namespace

// The listing is taken before anything is opened, since opening a database changes its files.
int RunInfo(const InfoOptions& options) {
    StoreInfo info;
    if (options.check && !AgentSocket().empty()) {
        Say("--check reads the folders themselves: name their directory with --store");
        return exitCode::usage;
    }
    StoreLook look;
    if (!LookAtStore(StoreNeed::reading, &look))
        return exitCode::noStore;
    info.directory = look.directory;
    info.listing = look.listing;
    if (!AskStore(options.check, &info))
        return exitCode::noStore;
    if (WantsTable(options.output))
        PrintTable(info);
    else
        PrintJson(info);
    for (const std::string& name : info.listing.unreadable)
        Say(Printable(name) + " can't be read");
    if (Interrupted())
        return exitCode::interrupted;
    return info.listing.unreadable.empty() && info.errors.empty() ? exitCode::done
                                                                  : exitCode::losses;
}

}  // namespace zel
