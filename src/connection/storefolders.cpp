#include "connection/storefolders.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "common/filesystem.h"
#include "common/foldernames.h"
#include "common/textbridge.h"

// Sizes are counted as the store counts them for its limit: the lengths of all regular files below
// the directory, links neither followed nor counted. What vanishes meanwhile, since a store may be
// at work, counts nothing.

namespace zel {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t dateLength = 8;
constexpr const char* silentNumber = "999";

bool IsDigits(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool IsVanished(const std::error_code& error) {
    return error == std::errc::no_such_file_or_directory;
}

void AddFile(const fs::directory_entry& entry, FolderSize* size) {
    std::error_code error;
    if (entry.symlink_status(error).type() != fs::file_type::regular)
        return;
    const std::uintmax_t bytes = entry.file_size(error);
    if (error)
        return;
    ++size->files;
    size->bytes += bytes;
}

// False when parts can't be read. Links are not followed, so a loop can't hold the walk and no byte
// outside of the store is counted.
bool AddFolder(const fs::path& folder, FolderSize* size) {
    std::error_code error;
    fs::recursive_directory_iterator it(folder, error);
    for (; !error && it != fs::recursive_directory_iterator(); it.increment(error))
        AddFile(*it, size);
    return !error || IsVanished(error);
}

bool IsFolder(const fs::directory_entry& entry) {
    std::error_code error;
    return entry.symlink_status(error).type() == fs::file_type::directory;
}

// By the lock of LevelDB, asked without taking it.
bool IsInUse(const fs::path& folder) {
    std::wstring lock;
    return wm::ToWide((folder / "LOCK").string(), lock) && wm::IsLockedByAnotherProcess(lock);
}

void AddEntry(const fs::directory_entry& entry, bool asksLocks, StoreListing* listing) {
    if (!IsFolder(entry)) {
        AddFile(entry, &listing->rest);
        return;
    }
    StoreFolder folder;
    folder.name = entry.path().filename().string();
    if (folder.name == "lost+found")  // a volume's own, which the store never touches
        return;
    // The store passes such names over, but what is in them counts.
    const bool isDatabase =
        wm::IsUtf8(folder.name) && !ZEL::IsRemovedName(std::string_view(folder.name));
    if (!AddFolder(entry.path(), isDatabase ? &folder.size : &listing->rest))
        listing->unreadable.push_back(folder.name);
    if (!isDatabase)
        return;
    folder.inUse = asksLocks && IsInUse(entry.path());
    listing->folders.push_back(std::move(folder));
}

}  // namespace

// A name that is no date is shown by as many characters, so that columns stay in line.
std::string StoreFolder::Date() const {
    std::string date = name.substr(0, dateLength);
    if (date.size() != dateLength || !IsDigits(date))
        return date;
    return date.substr(0, 4) + "-" + date.substr(4, 2) + "-" + date.substr(6);
}

std::string StoreFolder::Number() const {
    return name.size() > dateLength && IsDigits(name) ? name.substr(dateLength) : "";
}

const char* StoreFolder::Kind() const {
    if (!ZEL::IsDatabaseName(std::string_view(name)))
        return "other";
    return Number() == silentNumber ? "silent" : "events";
}

FolderSize StoreListing::Total() const {
    FolderSize total = rest;
    for (const StoreFolder& folder : folders) {
        total.files += folder.size.files;
        total.bytes += folder.size.bytes;
    }
    return total;
}

// Names begin with the date, so their order is that of age.
StoreListing ListStore(const std::string& directory, bool asksLocks) {
    StoreListing listing;
    std::error_code error;
    fs::directory_iterator it(directory, error);
    for (; !error && it != fs::directory_iterator(); it.increment(error))
        AddEntry(*it, asksLocks, &listing);
    if (error)
        listing.unreadable.push_back(directory);
    std::sort(listing.folders.begin(), listing.folders.end(),
              [](const StoreFolder& a, const StoreFolder& b) { return a.name < b.name; });
    return listing;
}

// By the store's rule: from the oldest on, until what is left fits. What lies beside the folders
// counts and can't go.
std::size_t CountVictims(const StoreListing& listing, std::uint64_t limitBytes) {
    std::uint64_t left = listing.Total().bytes;
    std::size_t count = 0;
    while (count < listing.folders.size() && left > limitBytes)
        left -= listing.folders[count++].size.bytes;
    return count;
}

std::string ReadableBytes(std::uint64_t bytes) {
    constexpr const char* units[] = {"KiB", "MiB", "GiB", "TiB"};
    if (bytes < 1024)
        return std::to_string(bytes) + " B";
    double value = static_cast<double>(bytes) / 1024;
    std::size_t unit = 0;
    for (; value >= 1024 && unit + 1 < std::size(units); ++unit)
        value /= 1024;
    char text[32];
    std::snprintf(text, sizeof(text), "%.1f %s", value, units[unit]);
    return text;
}

std::string Printable(const std::string& text) {
    std::string out = text;
    std::replace_if(
        out.begin(), out.end(),
        [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }, '?');
    return out;
}

}  // namespace zel
