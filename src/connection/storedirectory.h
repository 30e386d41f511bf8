#pragma once

#include <string>
#include <vector>

// How a program's store is named and found.
namespace zel {

// What a session needs of the store's directory.
enum class StoreNeed {
    existing,  // it is there, is a store's or empty, and can be read
    writable,  // likewise, and can be written; it is made (mode 0700) when it is missing
    anywhere,  // as writable, but a directory that holds other things becomes a store as well
};

// What a directory holds, by the names in it: nothing is opened, and no link is followed.
enum class StoreContent {
    databases,  // a folder YYYYMMDD or YYYYMMDDnnn with a database's files; maybe other things too
    nothing,    // nothing at all, or what a store may leave behind beside its databases
    foreign,    // other things alone, so that it is no store
};
StoreContent LookIntoStore(const std::string& directory);
// The folders in it that are no databases, by name, sorted.
std::vector<std::string> ForeignFolders(const std::string& directory);

// All of these give false, with one message in `problem`, when they fail. Texts are UTF-8.

// Tells the host services a directory or file by its token's name, such as ZELDataStore.
bool NamePath(const std::string& name, const std::string& value, std::string* problem);
// Tells them all that an ini file names, one NAME=VALUE a line.
bool ReadConfiguration(const std::string& file, std::string* problem);
// Names a settings file in the user's configuration folder, unless one is named already.
bool NameDefaultSettings(std::string* problem);
// Takes that name back, if no other was named: what the store writes to the settings from then on
// stays in this process.
void ForgetDefaultSettings();

// The store's directory, which must be usable for `need`. `existing` takes an empty one as well: it
// is a store that holds nothing yet.
bool FindStore(StoreNeed need, std::string* directory, std::string* problem);

}  // namespace zel
