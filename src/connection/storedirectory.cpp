#include "connection/storedirectory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "common/hostservices.h"
#include "common/textbridge.h"

namespace zel {

namespace {

bool Refuse(std::string* problem, std::string text) {
    *problem = std::move(text);
    return false;
}

std::string DefaultSettingsFile() {
    const char* const config = std::getenv("XDG_CONFIG_HOME");
    if (config != nullptr && *config != '\0')
        return std::string(config) + "/zelstore/settings.ini";
    const char* const home = std::getenv("HOME");
    return home != nullptr && *home != '\0' ? std::string(home) + "/.config/zelstore/settings.ini"
                                            : "";
}

bool HasToken(const wchar_t* token) {
    std::wstring value;
    return wm::ResolvePathVariable(token, value) && !value.empty();
}

bool CheckDirectory(const std::string& directory, StoreNeed need, std::string* problem) {
    constexpr mode_t ownerOnly = 0700;
    struct stat info {};
    bool exists = ::stat(directory.c_str(), &info) == 0;
    if (!exists && need == StoreNeed::writable) {
        if (::mkdir(directory.c_str(), ownerOnly) != 0)
            return Refuse(problem,
                          "the store " + directory + " can't be made: " + std::strerror(errno));
        exists = ::stat(directory.c_str(), &info) == 0;
    }
    if (!exists || !S_ISDIR(info.st_mode))
        return Refuse(problem,
                      "the store " + directory + (exists ? " is no directory" : " does not exist"));
    const int access = need == StoreNeed::writable ? R_OK | W_OK | X_OK : R_OK | X_OK;
    if (::access(directory.c_str(), access) != 0)
        return Refuse(problem,
                      "the store " + directory + " can't be used: " + std::strerror(errno));
    return true;
}

}  // namespace

bool NamePath(const std::string& name, const std::string& value, std::string* problem) {
    std::wstring token, wide;
    if (!wm::ToWide("%" + name + "%", token) || !wm::ToWide(value, wide))
        return Refuse(problem, name + " is not UTF-8");
    wm::SetPathToken(token, wide);
    return true;
}

bool ReadConfiguration(const std::string& file, std::string* problem) {
    try {
        for (const CLI::ConfigItem& item : CLI::ConfigINI().from_file(file)) {
            if (item.inputs.size() != 1)
                return Refuse(problem, file + ": " + item.fullname() + " needs one value");
            if (!NamePath(item.name, item.inputs.front(), problem))
                return false;
        }
        return true;
    } catch (const std::exception& error) {
        return Refuse(problem, file + ": " + error.what());
    }
}

bool NameDefaultSettings(std::string* problem) {
    if (HasToken(L"%ZELSettingsFile%"))
        return true;
    const std::string settings = DefaultSettingsFile();
    return settings.empty() || NamePath("ZELSettingsFile", settings, problem);
}

bool FindStore(StoreNeed need, std::string* directory, std::string* problem) {
    std::wstring wide;
    if (!wm::ResolvePathVariable(L"%ZELDataStore%", wide) || !wm::ToUtf8(wide, *directory))
        return Refuse(problem,
                      "no store is named: use --store DIR, ZEL_STORE or a configuration with "
                      "ZELDataStore");
    return CheckDirectory(*directory, need, problem);
}

}  // namespace zel
