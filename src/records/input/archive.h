#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "records/input/bytestream.h"

namespace zel {

// What an archive ends with.
enum class ArchiveEnd {
    all,
    stopped,  // by the taker
    damaged,  // which `*error` tells
};
// Whether the bytes begin as an archive (zip, tar) does; needs so many of them.
inline constexpr std::size_t archiveHeadSize = 262;
bool IsArchive(std::string_view head);
struct ArchiveEntry {
    std::string name;           // within the archive, in UTF-8 or as near as can be
    std::int64_t modified = 0;  // seconds since 1970; 0 where the archive does not tell
};
// Gives each plain file of an archive to `take` in turn, until that gives false: what the archive
// tells of it, and its bytes, which need not be read to the end. Nothing is written to the disk.
ArchiveEnd ReadArchive(ByteStream& archive,
                       const std::function<bool(const ArchiveEntry&, ByteStream& file)>& take,
                       std::string* error);

}  // namespace zel
