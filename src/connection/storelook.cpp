#include "connection/storelook.h"

#include <simdjson.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <set>

#include "common/foldernames.h"
#include "common/jsontext.h"
#include "common/utctime.h"
#include "connection/agentrequest.h"

// The lock of a database tells only other processes that it is in use, never the one that holds it.
// An agent that tells others what is in use finds its own by the files that it has open.

namespace zel {

namespace fs = std::filesystem;

namespace {

// The last time at which one of the folder's files was written; empty where that can't be told.
std::string LastWritten(const fs::path& folder) {
    using std::chrono::milliseconds;
    fs::file_time_type latest = fs::file_time_type::min();
    std::error_code error;
    for (fs::directory_iterator it(folder, error); !error && it != fs::directory_iterator();
         it.increment(error)) {
        const fs::file_time_type time = it->last_write_time(error);
        if (!error)
            latest = std::max(latest, time);
        error.clear();
    }
    if (latest == fs::file_time_type::min())
        return "";
    const auto point = std::chrono::file_clock::to_sys(latest);
    return wm::FormatUtc(wm::ToSystemTime(std::chrono::floor<milliseconds>(point)));
}

// The names of folders whose lock this process has open.
std::set<std::string> OpenedHere(const std::string& directory) {
    std::set<std::string> names;
    std::error_code error;
    const fs::path store = fs::canonical(directory, error);
    for (fs::directory_iterator it("/proc/self/fd", error);
         !error && it != fs::directory_iterator(); it.increment(error)) {
        std::error_code gone;
        const fs::path file = fs::read_symlink(it->path(), gone);
        if (!gone && file.filename() == "LOCK" && file.parent_path().parent_path() == store)
            names.insert(file.parent_path().filename());
    }
    return names;
}

bool IsOfEvents(const StoreFolder& folder) {
    return std::string_view(folder.Kind()) == "events";
}

template <typename List, typename Form>
std::string ArrayOf(const List& list, Form&& form) {
    std::string text = "[";
    for (const auto& item : list)
        text.append(text.size() > 1 ? "," : "").append(form(item));
    return text + "]";
}

std::string SizeJson(const FolderSize& size) {
    return "\"files\":" + std::to_string(size.files) + ",\"bytes\":" + std::to_string(size.bytes);
}

std::string FolderJson(const StoreFolder& folder) {
    return "{\"name\":" + wm::JsonString(folder.name) +
           ",\"date\":" + wm::JsonString(folder.Date()) + ",\"kind\":\"" + folder.Kind() + "\"," +
           SizeJson(folder.size) + ",\"in_use\":" + (folder.inUse ? "true}" : "false}");
}

FolderSize SizeFrom(simdjson::dom::element element) {
    return {element["files"].get_uint64(), element["bytes"].get_uint64()};
}

std::string TextFrom(simdjson::dom::element element, std::string_view name) {
    return std::string(element[name].get_string().value());
}

void ReadNames(simdjson::dom::element element, std::vector<std::string>* names) {
    for (const simdjson::dom::element name : element.get_array())
        names->emplace_back(name.get_string().value());
}

}  // namespace

StoreLook LookHere(const std::string& directory, bool isOwner) {
    StoreLook look{directory, ListStore(directory, !isOwner), ForeignFolders(directory), {}, {}, 0};
    const auto opened = isOwner ? OpenedHere(directory) : std::set<std::string>();
    const StoreFolder* newest = nullptr;
    for (StoreFolder& folder : look.listing.folders) {
        folder.inUse = folder.inUse || opened.contains(folder.name);
        if (IsOfEvents(folder))
            newest = &folder;
    }
    if (newest != nullptr)
        look.writtenUntil = LastWritten(fs::path(directory) / newest->name);
    return look;
}

bool LookAtStore(StoreNeed need, StoreLook* look, std::string* problem) {
    std::string directory;
    if (AgentSocket().empty()) {
        if (!FindStore(need, &directory, problem))
            return false;
        *look = LookHere(directory, false);
        return true;
    }
    std::string answer;
    if (Failed(CallAgent("GET", "/v1/folders", "", &answer, problem)))
        return false;
    if (FromJson(answer, look))
        return true;
    *problem = "the agent at " + AgentSocket() + " does not tell its folders as an agent does";
    return false;
}

std::string NewestEventsFolder() {
    std::string newest, problem;
    std::error_code error;
    if (!AgentSocket().empty()) {
        StoreLook look;
        if (LookAtStore(StoreNeed::reading, &look, &problem))
            for (const StoreFolder& folder : look.listing.folders)
                newest = IsOfEvents(folder) ? folder.name : newest;
        return newest;
    }
    std::string directory;
    if (!FindStore(StoreNeed::reading, &directory, &problem))
        return "";
    for (const auto& entry : fs::directory_iterator(directory, error)) {
        const std::string name = entry.path().filename().string();
        if (ZEL::IsDatabaseName(std::string_view(name)) && !name.ends_with("999"))
            newest = std::max(newest, name);
    }
    return newest;
}

std::string ToJson(const StoreLook& look) {
    return "{\"store\":" + wm::JsonString(look.directory) +
           ",\"folders\":" + ArrayOf(look.listing.folders, FolderJson) + ",\"beside\":{" +
           SizeJson(look.listing.rest) +
           "},\"unreadable\":" + ArrayOf(look.listing.unreadable, wm::JsonString) +
           ",\"foreign\":" + ArrayOf(look.foreign, wm::JsonString) +
           ",\"written_until\":" + wm::JsonString(look.writtenUntil) +
           ",\"oldest_date\":" + wm::JsonString(look.oldestDate) +
           ",\"estimated_bytes\":" + std::to_string(look.estimatedBytes) + "}";
}

bool FromJson(std::string_view json, StoreLook* look) {
    try {
        simdjson::dom::parser parser;
        const simdjson::dom::element all = parser.parse(simdjson::padded_string(json));
        StoreLook read;
        read.directory = TextFrom(all, "store");
        for (const simdjson::dom::element one : all["folders"].get_array())
            read.listing.folders.push_back(
                {TextFrom(one, "name"), SizeFrom(one), one["in_use"].get_bool()});
        read.listing.rest = SizeFrom(all["beside"]);
        ReadNames(all["unreadable"], &read.listing.unreadable);
        ReadNames(all["foreign"], &read.foreign);
        read.writtenUntil = TextFrom(all, "written_until");
        read.oldestDate = TextFrom(all, "oldest_date");
        read.estimatedBytes = all["estimated_bytes"].get_uint64();
        *look = std::move(read);
        return true;
    } catch (const simdjson::simdjson_error&) {
        return false;
    }
}

}  // namespace zel
