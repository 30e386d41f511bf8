#include "userdirectories.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <sstream>
#include <string_view>

// A desktop lets a user move the folders for documents, pictures and so on, and keeps the places
// in a file of shell assignments, ~/.config/user-dirs.dirs. Only the form that the desktop itself
// writes is understood, a path in quotes that is absolute or begins with $HOME: nothing is run,
// and no other variable is replaced. What is not understood counts as not said, and the usual
// place holds.

namespace wm {

namespace {

struct Row {
    int folder;
    const char* variable;  // in user-dirs.dirs; null when the place is fixed
    const char* place;     // under the home folder
};

// By numbers of the shell. What has no counterpart on a desktop is missing here, and such a path
// stands for itself.
constexpr Row rows[] = {
    {0x00, "XDG_DESKTOP_DIR", "Desktop"},     {0x05, "XDG_DOCUMENTS_DIR", "Documents"},
    {0x07, nullptr, ".config/autostart"},     {0x0D, "XDG_MUSIC_DIR", "Music"},
    {0x0E, "XDG_VIDEOS_DIR", "Videos"},       {0x10, "XDG_DESKTOP_DIR", "Desktop"},
    {0x15, "XDG_TEMPLATES_DIR", "Templates"}, {0x1A, nullptr, ".config"},
    {0x1C, nullptr, ".local/share"},          {0x20, nullptr, ".cache"},
    {0x27, "XDG_PICTURES_DIR", "Pictures"},
};
constexpr int profileFolder = 0x28;

// The file belongs to the user and is read for who queries, who may be root: a link, a pipe or a
// file without end in its place must not hold or lead astray. Empty for what can't be read.
std::string ReadUserFile(const std::string& path) {
    constexpr std::size_t mostBytes = 64U << 10;
    const int file = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    if (file < 0)
        return "";
    std::string text;
    struct stat info {};
    if (::fstat(file, &info) == 0 && S_ISREG(info.st_mode)) {
        text.resize(mostBytes);
        std::size_t filled = 0;
        for (ssize_t got = 1; got > 0 && filled < mostBytes;) {
            got = ::read(file, text.data() + filled, mostBytes - filled);
            filled += got > 0 ? static_cast<std::size_t>(got) : 0;
        }
        text.resize(filled);
    }
    ::close(file);
    return text;
}

// The value of a line NAME="value", in which $HOME stands for the home folder.
bool ReadUserDirs(const std::string& home, std::string_view variable, std::string* path) {
    constexpr std::string_view homeVariable = "$HOME";
    std::istringstream file(ReadUserFile(home + "/.config/user-dirs.dirs"));
    for (std::string line; std::getline(file, line);) {
        const std::string start = std::string(variable) + "=\"";
        if (!line.starts_with(start) || line.size() == start.size() || line.back() != '"')
            continue;
        const std::string value = line.substr(start.size(), line.size() - start.size() - 1);
        *path = value.starts_with(homeVariable) ? home + value.substr(homeVariable.size()) : value;
        return path->starts_with('/');
    }
    return false;
}

}  // namespace

bool FindUserDirectory(const std::string& home, int folder, std::string* path) {
    if (home.empty())
        return false;
    if (folder == profileFolder) {
        *path = home;
        return true;
    }
    for (const Row& row : rows) {
        if (row.folder != folder)
            continue;
        if (row.variable == nullptr || !ReadUserDirs(home, row.variable, path))
            *path = home + "/" + row.place;
        return true;
    }
    return false;
}

}  // namespace wm
