#pragma once

#include <string>
#include <vector>

// How a program's store is named and found.
namespace zel {

// What a session needs of the store's directory. The more a caller wants to do there, the more has
// to be made sure of before the component is loaded, since the store itself takes any directory and
// makes what is missing.
enum class StoreNeed {
    reading,   // it is there, is a store's or empty, and can be read; nothing in it is changed
    existing,  // likewise, and can be written
    writable,  // likewise, and can be written; it is made (mode 0700) when it is missing
    anywhere,  // as writable, but a directory that holds other things becomes a store as well
};

// Whether a missing directory is made for it.
constexpr bool MayBeMade(StoreNeed need) noexcept {
    return need == StoreNeed::writable || need == StoreNeed::anywhere;
}

// What a directory holds, by the names in it: nothing is opened, and no link is followed. One
// database makes a store, whatever else stands beside it. Empty and foreign are told apart because
// the first may become a store without a question, the second may be somebody's documents.
enum class StoreContent {
    databases,  // a folder YYYYMMDD or YYYYMMDDnnn with a database's files; maybe other things too
    nothing,    // nothing at all, or what a store may leave behind beside its databases
    foreign,    // other things alone, so that it is no store
};
// A directory that can't be listed counts as far as it was seen, at worst as `nothing`: FindStore
// has asked for the right to read it before.
StoreContent LookIntoStore(const std::string& directory);
// The folders in it that are no databases, by name, sorted. Files are not among them: what a purge
// may take are folders alone.
std::vector<std::string> ForeignFolders(const std::string& directory);

// All of these give false, with one message in `problem`, when they fail. Texts are UTF-8.

// Tells the host services a directory or file by its token's name, such as ZELDataStore. Takes
// effect for the whole process and all that is opened from then on. Whether the path exists is not
// looked at.
bool NamePath(const std::string& name, const std::string& value, std::string* problem);
// Tells them all that an ini file names, one NAME=VALUE a line. Lines ahead of the one that is
// wrong have taken effect then.
bool ReadConfiguration(const std::string& file, std::string* problem);
// Names a settings file in the user's configuration folder, unless one is named already. True also
// where the user has no such folder; the process then has settings in memory alone.
bool NameDefaultSettings(std::string* problem);
// Takes that name back, if no other was named: what the store writes to the settings from then on
// stays in this process.
void ForgetDefaultSettings();

// From now on FindStore finds a store for reading alone, and refuses all else with these words. For
// a store that is a copy of what was named: what was written into it would be lost with it.
void AllowReadingAlone(const std::string& why);

// The store's directory, which must be usable for `need`. `existing` takes an empty one as well: it
// is a store that holds nothing yet. Behind an agent (agentrequest.h), its store's, for reading
// alone.
bool FindStore(StoreNeed need, std::string* directory, std::string* problem);

}  // namespace zel
