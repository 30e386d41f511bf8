#include "connection/storedirectory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string_view>

#include "common/foldernames.h"
#include "common/hostservices.h"
#include "common/textbridge.h"
#include "connection/agentrequest.h"
#include "connection/storelook.h"

// Whether a directory is a store is told by what stands in it. A program that is pointed at a
// person's documents by mistake must neither answer "no events" nor fill them with databases, and a
// purge there would be a disaster. A store's own are the folders that are named as its databases
// are and hold files that are named as LevelDB's are (one whose making or removal was cut off may
// lack any one of them, or all), the place that following has reached, and what a file system of
// its own brings along.

namespace zel {

namespace fs = std::filesystem;

namespace {

bool namedDefaultSettings = false;
std::string whyReadingAlone;  // empty: all may be done

bool Refuse(std::string* problem, std::string text) {
    *problem = std::move(text);
    return false;
}

std::string DefaultSettingsFile() {
    const char* const config = std::getenv("XDG_CONFIG_HOME");
    if (config != nullptr && *config != '\0')
        return std::string(config) + "/zelstore/settings.ini";
    const char* const home = std::getenv("HOME");
    return home != nullptr && *home != '\0' ? std::string(home) + "/.config/zelstore/settings.ini"
                                            : "";
}

// A token that resolves to nothing counts as not named, as a configuration may say so.
bool HasToken(const wchar_t* token) {
    std::wstring value;
    return wm::ResolvePathVariable(token, value) && !value.empty();
}

bool IsNumber(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == text.npos;
}

bool IsDatabaseFile(const std::string& name) {
    const fs::path path(name);
    const std::string kind = path.extension();
    return name == "CURRENT" || name.starts_with("MANIFEST-") ||
           ((kind == ".log" || kind == ".ldb") && IsNumber(path.stem().string()));
}

// What one entry of a store's directory says of it.
StoreContent ContentOf(const fs::directory_entry& entry) {
    const std::string name = entry.path().filename();
    std::error_code error;
    if (entry.symlink_status(error).type() != fs::file_type::directory)
        return name.starts_with("zel.position") ? StoreContent::nothing : StoreContent::foreign;
    if (name == "lost+found" || ZEL::IsRemovedName(std::string_view(name)))
        return StoreContent::nothing;
    if (!ZEL::IsDatabaseName(std::string_view(name)))
        return StoreContent::foreign;
    bool isEmpty = true;
    fs::directory_iterator file(entry.path(), error);
    for (; !error && file != fs::directory_iterator(); file.increment(error)) {
        if (IsDatabaseFile(file->path().filename()))
            return StoreContent::databases;
        const std::string other = file->path().filename();
        isEmpty = isEmpty && (other == "LOCK" || other == "LOG" || other == "LOG.old");
    }
    return isEmpty ? StoreContent::nothing : StoreContent::foreign;
}

bool CheckContent(const std::string& directory, StoreNeed need, std::string* problem) {
    if (need == StoreNeed::anywhere || LookIntoStore(directory) != StoreContent::foreign)
        return true;
    return Refuse(problem, !MayBeMade(need)
                               ? directory + " is no store: none of a store's folders is in it"
                               : directory +
                                     " is no store and holds other things; "
                                     "`ingest --new` makes one there all the same");
}

// The parent folder has to be there: a path with a slip in it must not become a tree of folders.
bool CheckDirectory(const std::string& directory, StoreNeed need, std::string* problem) {
    constexpr mode_t ownerOnly = 0700;
    struct stat info {};
    bool exists = ::stat(directory.c_str(), &info) == 0;
    if (!exists && MayBeMade(need)) {
        if (::mkdir(directory.c_str(), ownerOnly) != 0)
            return Refuse(problem,
                          "the store " + directory + " can't be made: " + std::strerror(errno));
        exists = ::stat(directory.c_str(), &info) == 0;
    }
    if (!exists || !S_ISDIR(info.st_mode))
        return Refuse(problem,
                      "the store " + directory + (exists ? " is no directory" : " does not exist"));
    const int access = need == StoreNeed::reading ? R_OK | X_OK : R_OK | W_OK | X_OK;
    if (::access(directory.c_str(), access) != 0)
        return Refuse(problem,
                      "the store " + directory + " can't be used: " + std::strerror(errno));
    return CheckContent(directory, need, problem);
}

// Where the agent has its store. A directory that only the agent may open is no use to who writes.
bool FindAtAgent(StoreNeed need, std::string* directory, std::string* problem) {
    if (need != StoreNeed::reading)
        return Refuse(problem, "the store is the agent's at " + AgentSocket() +
                                   "; to write into a directory, name it with --store");
    StoreLook look;
    if (!LookAtStore(StoreNeed::reading, &look, problem))
        return false;
    *directory = look.directory;
    return true;
}

}  // namespace

bool NamePath(const std::string& name, const std::string& value, std::string* problem) {
    std::wstring token, wide;
    if (!wm::ToWide("%" + name + "%", token) || !wm::ToWide(value, wide))
        return Refuse(problem, name + " is not UTF-8");
    wm::SetPathToken(token, wide);
    return true;
}

bool ReadConfiguration(const std::string& file, std::string* problem) {
    try {
        for (const CLI::ConfigItem& item : CLI::ConfigINI().from_file(file)) {
            if (item.inputs.size() != 1)
                return Refuse(problem, file + ": " + item.fullname() + " needs one value");
            if (!NamePath(item.name, item.inputs.front(), problem))
                return false;
        }
        return true;
    } catch (const std::exception& error) {
        return Refuse(problem, file + ": " + error.what());
    }
}

bool NameDefaultSettings(std::string* problem) {
    if (HasToken(L"%ZELSettingsFile%"))
        return true;
    const std::string settings = DefaultSettingsFile();
    namedDefaultSettings = !settings.empty();
    return settings.empty() || NamePath("ZELSettingsFile", settings, problem);
}

// A token can't be taken back; an empty value counts as none, and the settings then have no file.
void ForgetDefaultSettings() {
    if (namedDefaultSettings)
        wm::SetPathToken(L"%ZELSettingsFile%", L"");
}

// An entry that vanishes meanwhile counts as none.
std::vector<std::string> ForeignFolders(const std::string& directory) {
    std::vector<std::string> names;
    std::error_code error;
    fs::directory_iterator entry(directory, error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
        std::error_code unknown;
        if (entry->symlink_status(unknown).type() == fs::file_type::directory &&
            ContentOf(*entry) == StoreContent::foreign)
            names.push_back(entry->path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

// Ends at the first database, so that a large store costs no more than a small one.
StoreContent LookIntoStore(const std::string& directory) {
    StoreContent content = StoreContent::nothing;
    std::error_code error;
    fs::directory_iterator entry(directory, error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
        const StoreContent one = ContentOf(*entry);
        if (one == StoreContent::databases)
            return one;
        if (one == StoreContent::foreign)
            content = one;
    }
    return content;
}

void AllowReadingAlone(const std::string& why) {
    whyReadingAlone = why;
}

bool FindStore(StoreNeed need, std::string* directory, std::string* problem) {
    if (need != StoreNeed::reading && !whyReadingAlone.empty())
        return Refuse(problem, whyReadingAlone);
    if (!AgentSocket().empty())
        return FindAtAgent(need, directory, problem);
    std::wstring wide;
    if (!wm::ResolvePathVariable(L"%ZELDataStore%", wide) || !wm::ToUtf8(wide, *directory))
        return Refuse(problem,
                      "no store is named: use --store DIR, ZEL_STORE or a configuration with "
                      "ZELDataStore");
    return CheckDirectory(*directory, need, problem);
}

}  // namespace zel
