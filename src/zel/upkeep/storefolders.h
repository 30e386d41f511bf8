#pragma once

#include <cstdint>
#include <string>
#include <vector>

// What stands in the store's directory, by a look at it: no interface of the store lists folders.
// Nothing is opened or changed, and no link is followed.
namespace zel {

struct FolderSize {
    std::uint64_t files = 0;
    std::uint64_t bytes = 0;
};

struct StoreFolder {
    std::string name;  // UTF-8
    FolderSize size;
    bool inUse = false;  // by another process

    // "2026-11-12", or the beginning of a name that is no date.
    std::string Date() const;
    // Of a further folder of its date; empty for the first one.
    std::string Number() const;
    // "events", "silent" for enrichments that were added later, or "other" for what nobody made by
    // the rules.
    const char* Kind() const;
};

struct StoreListing {
    std::vector<StoreFolder> folders;  // oldest first, as the store walks them
    FolderSize rest;                   // files beside the folders
    std::vector<std::string> unreadable;

    FolderSize Total() const;
};

StoreListing ListStore(const std::string& directory);

// How many of the folders a purge to that limit takes, from the oldest on.
std::size_t CountVictims(const StoreListing& listing, std::uint64_t limitBytes);

// "1.5 MiB"
std::string ReadableBytes(std::uint64_t bytes);
// A name as a terminal may show it.
std::string Printable(const std::string& text);

}  // namespace zel
