#pragma once

#include <cstdint>
#include <string>
#include <vector>

// What stands in the store's directory, by a look at it: no interface of the store lists folders.
// Nothing is opened or changed, and no link is followed.
namespace zel {

// Lengths of regular files, as the store counts them for its limit, and not what they take on the
// disk.
struct FolderSize {
    std::uint64_t files = 0;
    std::uint64_t bytes = 0;
};

// A folder that the store takes for a database, whether or not it is one.
struct StoreFolder {
    std::string name;  // UTF-8
    FolderSize size;
    bool inUse = false;  // by another process

    // "2026-11-12", or the beginning of a name that is no date.
    std::string Date() const;
    // Of a further folder of its date; empty for the first one.
    std::string Number() const;
    // "events", "silent" for enrichments that were added later, or "other" for what nobody made by
    // the rules. By the name alone; the text lives as long as the program.
    const char* Kind() const;
};

// A look at one moment: a store that is at work may have changed meanwhile. What `rest` holds
// counts towards a limit though no purge can take it.
struct StoreListing {
    std::vector<StoreFolder> folders;  // oldest first, as the store walks them
    FolderSize rest;                   // files beside the folders
    // Names, not paths, but for the directory itself. Their sizes are lower bounds.
    std::vector<std::string> unreadable;

    FolderSize Total() const;
};

// Never fails as a whole: what can't be read is named in it. Any thread. `asksLocks`: whether to
// see what other processes have open. A process that has folders open itself must not: a look at a
// lock would give up its own.
StoreListing ListStore(const std::string& directory, bool asksLocks = true);

// How many of the folders a purge to that limit takes, from the oldest on. Folders in use are among
// them: that they stay is for the caller to tell.
std::size_t CountVictims(const StoreListing& listing, std::uint64_t limitBytes);

// "1.5 MiB" is the form: by powers of 1024, rounded to one digit behind the point; for people,
// never to be read back.
std::string ReadableBytes(std::uint64_t bytes);
// A name as a terminal may show it. Each control character becomes a question mark, so that the
// columns of a table keep their width.
std::string Printable(const std::string& text);

}  // namespace zel
