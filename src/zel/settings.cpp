#include <charconv>
#include <cstdio>
#include <filesystem>

#include "commands.h"
#include "common/hostservices.h"
#include "common/textbridge.h"
#include "messages.h"
#include "storesession.h"

namespace zel {

namespace {

using ZEL::CountedPtr;

struct OpenKey {
    CountedPtr<ZEL::ISettingsManager> manager;
    CountedPtr<ZEL::ISettingsKey> key;
    std::wstring name;
};

bool Open(const SettingsOptions& options, OpenKey* open) {
    std::wstring path;
    if (!wm::ToWide(options.key, path) || !wm::ToWide(options.name, open->name)) {
        Say("the key or the name is not UTF-8");
        return false;
    }
    if (Failed(wm::OpenSettings(open->manager.Receive()))) {
        Say("the settings service can't be loaded; -v tells why");
        return false;
    }
    if (Failed(open->manager->OpenKey(path.c_str(), open->key.Receive()))) {
        Say("the settings can't be read");
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
    if (Failed(open.key->WriteNumber(open.name.c_str(), value)) ||
        Failed(open.manager->PutBack(open.key.Get()))) {
        Say("the settings can't be written");
        return exitCode::noStore;
    }
    return exitCode::done;
}

}  // namespace zel
