#pragma once

#include <cstdint>
#include <string>

namespace zel {

// A store that came as an archive (.zip, .tar, .tar.gz, .tar.xz, .tar.zst), as evidence does that
// is taken from another machine. It is unpacked into a folder of this user alone, below TMPDIR or
// /tmp, which goes with the object. For one thread.
class PackedStore {
public:
    PackedStore() = default;
    ~PackedStore();
    PackedStore(const PackedStore&) = delete;
    PackedStore& operator=(const PackedStore&) = delete;

    // Whether a store is named that has to be unpacked: a file, not a directory.
    static bool IsNamed(const std::string& store);

    // Takes a store's databases and what is in them, wherever in the archive they stand; all else
    // in it is left out. False, with words in `problem`, when there is no store or more than one,
    // when the archive is damaged (what is read of a damaged one would be taken for the whole),
    // when it needs more room than there is, and when the user interrupts. To be called once.
    bool Unpack(const std::string& archive, std::string* problem);
    // The folder then stays where it is.
    void Keep() noexcept { isKept_ = true; }

    // The store's directory, once it is unpacked.
    const std::string& Directory() const noexcept { return directory_; }
    std::uint64_t Files() const noexcept { return files_; }
    std::uint64_t Bytes() const noexcept { return bytes_; }

private:
    class Entries;

    std::string directory_;
    std::uint64_t files_ = 0, bytes_ = 0;
    bool isKept_ = false;
};

}  // namespace zel
