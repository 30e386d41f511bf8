#pragma once

#include <cstdint>
#include <string>

namespace zel {

// Opens the LevelDB database in `folder` (UTF-8) and reads all of it, as the store does not for the
// sake of its speed: checksums of tables and logs are verified, and what the library would pass
// over counts as damage. Opening does what it does for a query, no more: records of a log that is
// whole move to a table. Nothing is made in a folder without a database, and nothing is repaired.
//
// The store's codes: 0, 0x80070570 for damage, 0x8007045D for files that can't be read, 0x80004005
// for a folder that holds no database, 0x80070020 for one that another process has open,
// 0x8007000E. `*why` says it in words. Ends early, with 0, when the program is interrupted. Not for
// a folder that this process has open. Takes as long as reading every byte does. `*why` is
// unchanged for 0.
std::int32_t CheckFolder(const std::string& folder, std::string* why);

}  // namespace zel
