#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "common/lock.h"
#include "common/result.h"

namespace wmset {

// All settings: numbers by key path and value name, kept in one readable file of the form
//
//   [ZEL\Settings\FDR]
//   MAX_INCOMING_QUEUE_LENGTH=20000
//
// Numbers are decimal. The file's path is the value of %ZELSettingsFile%; without one the settings
// live in memory. The file is read at each opening of a key, so that another process's changes are
// seen, and replaced as a whole by each save. A file that can't be understood is told to the host
// and left as it is. May be used by any thread.
class SettingsFile {
public:
    using Numbers = std::map<std::string, std::uint32_t>;
    using Changes = std::map<std::string, std::optional<std::uint32_t>>;  // nothing: taken out

    // Whether the file can hold such a key path or value name and give it back unchanged.
    static bool IsName(std::string_view name) noexcept;

    // The numbers of one key; none for a key that the file does not have.
    ZEL::TobResult Load(const std::string& keyPath, Numbers* numbers) EXCLUDES(lock_);
    // Makes the changes of one key in the file; all else stays as it is there.
    ZEL::TobResult Save(const std::string& keyPath, const Changes& changes) EXCLUDES(lock_);

private:
    using Keys = std::map<std::string, Numbers>;

    ZEL::TobResult ReadLocked(Keys* keys) REQUIRES(lock_);

    wm::Lock lock_{wm::LockRank::settings};
    Keys inMemory_ GUARDED_BY(lock_);
};

}  // namespace wmset
