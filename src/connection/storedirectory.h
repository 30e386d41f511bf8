#pragma once

#include <string>

// How a program's store is named and found.
namespace zel {

// What a session needs of the store's directory.
enum class StoreNeed {
    existing,  // it is there, and can be read
    writable,  // it is made (mode 0700) when it is missing, and can be written
};

// All of these give false, with one message in `problem`, when they fail. Texts are UTF-8.

// Tells the host services a directory or file by its token's name, such as ZELDataStore.
bool NamePath(const std::string& name, const std::string& value, std::string* problem);
// Tells them all that an ini file names, one NAME=VALUE a line.
bool ReadConfiguration(const std::string& file, std::string* problem);
// Names a settings file in the user's configuration folder, unless one is named already.
bool NameDefaultSettings(std::string* problem);

// The store's directory, which must be usable for `need`.
bool FindStore(StoreNeed need, std::string* directory, std::string* problem);

}  // namespace zel
