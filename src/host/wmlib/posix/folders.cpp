#include <filesystem>

#include "../platform.h"

// What the standard library asks as this system needs it asked.

namespace wm::platform {

namespace fs = std::filesystem;

namespace {

Kind ToKind(fs::file_type type) noexcept {
    switch (type) {
        case fs::file_type::none:
        case fs::file_type::not_found:
            return Kind::missing;
        case fs::file_type::regular:
            return Kind::file;
        case fs::file_type::directory:
            return Kind::folder;
        case fs::file_type::symlink:
            return Kind::link;
        default:
            return Kind::other;
    }
}

// The listing mostly tells, so that nothing is asked for each entry.
Kind KindOf(const fs::directory_entry& entry) {
    std::error_code ignored;
    if (entry.is_symlink(ignored))
        return Kind::link;
    if (entry.is_directory(ignored))
        return Kind::folder;
    return entry.is_regular_file(ignored) ? Kind::file : Kind::other;
}

}  // namespace

void MakeVerbatim(std::string&) {}

Kind KindOf(const std::string& path) {
    std::error_code error;
    return ToKind(fs::symlink_status(path, error).type());
}

bool IsDirectory(const std::string& path) {
    std::error_code error;
    return fs::is_directory(path, error);
}

std::error_code FileSize(const std::string& path, std::uint64_t* bytes) {
    std::error_code error;
    const std::uintmax_t size = fs::file_size(path, error);
    *bytes = error ? 0 : size;
    return error;
}

std::error_code ForEachEntry(const std::string& path,
                             const std::function<void(const std::string&, Kind)>& visit) {
    std::error_code error;
    fs::directory_iterator it(path, error);
    for (; !error && it != fs::directory_iterator(); it.increment(error))
        visit(it->path().filename().native(), KindOf(*it));
    return error;
}

std::error_code Rename(const std::string& from, const std::string& to) {
    std::error_code error;
    fs::rename(from, to, error);
    return error;
}

std::error_code RemoveTree(const std::string& path) {
    std::error_code error;
    fs::remove_all(path, error);
    return error;
}

}  // namespace wm::platform
