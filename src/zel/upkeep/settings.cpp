#include <charconv>
#include <cstdio>
#include <filesystem>

#include "common/hostservices.h"
#include "common/settingsvalue.h"
#include "common/textbridge.h"
#include "connection/storesession.h"
#include "zel/commands.h"
#include "zel/terminal/messages.h"

namespace zel {

namespace {

struct OpenKey {
    wm::OpenSettingsKey key;
    std::wstring name;
};

bool Open(const SettingsOptions& options, OpenKey* open) {
    std::wstring path;
    if (!wm::ToWide(options.key, path) || !wm::ToWide(options.name, open->name)) {
        Say("the key or the name is not UTF-8");
        return false;
    }
    if (Failed(open->key.Open(path.c_str()))) {
        Say("the settings can't be read; -v tells why");
        return false;
    }
    return true;
}

}  // namespace

void MakeSettingsFolder() {
    std::wstring file;
    std::string path;
    std::error_code ignored;
    if (wm::ResolvePathVariable(L"%ZELSettingsFile%", file) && wm::ToUtf8(file, path))
        std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
}

int RunSettingsGet(const SettingsOptions& options) {
    OpenKey open;
    if (!Open(options, &open))
        return exitCode::noStore;
    std::uint32_t value = 0;
    if (Failed(open.key->ReadNumber(open.name.c_str(), &value))) {
        Say(options.key + " has no " + options.name);
        return exitCode::nothingFound;
    }
    std::printf("%u\n", value);
    return exitCode::done;
}

int RunSettingsSet(const SettingsOptions& options) {
    std::uint32_t value = 0;
    const char* const end = options.value.data() + options.value.size();
    const auto parsed = std::from_chars(options.value.data(), end, value);
    if (parsed.ec != std::errc() || parsed.ptr != end) {
        Say("\"" + options.value + "\" is no number from 0 to 4294967295");
        return exitCode::usage;
    }
    std::wstring file;
    if (!wm::ResolvePathVariable(L"%ZELSettingsFile%", file) || file.empty()) {
        Say("there is no file for settings: set HOME, XDG_CONFIG_HOME or ZELSettingsFile");
        return exitCode::noStore;
    }
    MakeSettingsFolder();
    OpenKey open;
    if (!Open(options, &open))
        return exitCode::noStore;
    if (Failed(open.key->WriteNumber(open.name.c_str(), value)) || Failed(open.key.PutBack())) {
        Say("the settings can't be written");
        return exitCode::noStore;
    }
    return exitCode::done;
}

}  // namespace zel
