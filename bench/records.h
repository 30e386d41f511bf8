#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace bench {

// Event records of the shape and size that sensors send: about 650 bytes each, several kinds, times
// a few milliseconds apart. The same number always gives the same records.
std::vector<std::string> MakeRecords(std::size_t count);

// A folder that goes with the object.
class TempFolder {
public:
    explicit TempFolder(const char* name);
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    const std::filesystem::path& Path() const { return path_; }

private:
    std::filesystem::path path_;
};

}  // namespace bench
