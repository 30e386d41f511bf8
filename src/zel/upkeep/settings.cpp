#include <charconv>
#include <cstdio>
#include <filesystem>

#include "common/hostservices.h"
#include "common/settingsvalue.h"
#include "common/textbridge.h"
#include "connection/storesession.h"
#include "zel/commands.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/textfit.h"

// The user's own settings file is written here and nowhere else in the program: other commands read
// it, and write only to a file that was named (ForgetDefaultSettings).
//
// Reading takes any name, since a file may hold what a later version reads; writing takes only
// what this version knows, as a name with a slip would be kept and have no effect.

namespace zel {

namespace {

// What the store reads or writes. A name that stands nowhere has no effect, and is a slip.
constexpr struct {
    const char* key;
    const char* name;
} known[] = {
    {"ZEL\\Settings\\FDR", "MAX_INCOMING_QUEUE_LENGTH"},
    {"ZEL\\Settings\\FDR", "BLOCK_SIZE"},
    {"ZEL\\Settings\\DiskMonitor", "StopThreshold"},
    {"ZEL\\Settings\\DiskMonitor", "ResumePercentage"},
    {"ZEL\\Opstate\\EMAQ", "MaxDBSizeHonored"},
};

// Names what is known where the setting is not. False then.
bool IsKnown(const SettingsOptions& options) {
    for (const auto& row : known)
        if (options.key == row.key && options.name == row.name)
            return true;
    Say("nothing here knows " + Escaped(options.key + " " + options.name) + "; known:");
    for (const auto& row : known)
        Say("  '" + std::string(row.key) + "' " + row.name);
    return false;
}

// A name that nothing knows is the likelier reason for its absence.
int TellAbsent(const SettingsOptions& options) {
    if (IsKnown(options))
        Say(options.key + " has no " + options.name);
    return exitCode::nothingFound;
}

// What a command works on: the key, open until the object goes, and the value's name as the service
// wants it.
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

// The settings service writes its file but makes no folders. A failure shows when it writes.
void MakeFolderOf(const std::wstring& file) {
    std::string path;
    std::error_code ignored;
    if (wm::ToUtf8(file, path))
        std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
}

// Puts back the open key, once `change` has given exitCode::done.
template <typename Body>
// Nothing is written where `change` has found nothing to do.
int Change(const SettingsOptions& options, Body&& change) {
    std::wstring file;
    if (!wm::ResolvePathVariable(L"%ZELSettingsFile%", file) || file.empty()) {
        Say("there is no file for settings: set HOME, XDG_CONFIG_HOME or ZELSettingsFile");
        return exitCode::noStore;
    }
    OpenKey open;
    if (!Open(options, &open))
        return exitCode::noStore;
    const int changed = change(open);
    if (changed == exitCode::done)
        MakeFolderOf(file);
    if (changed == exitCode::noStore || (changed == exitCode::done && Failed(open.key.PutBack()))) {
        Say("the settings can't be written");
        return exitCode::noStore;
    }
    return changed;
}

}  // namespace

int RunSettingsGet(const SettingsOptions& options) {
    OpenKey open;
    if (!Open(options, &open))
        return exitCode::noStore;
    std::uint32_t value = 0;
    if (Failed(open.key->ReadNumber(open.name.c_str(), &value)))
        return TellAbsent(options);
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
    if (!IsKnown(options))
        return exitCode::usage;
    return Change(options, [&](OpenKey& open) {
        return Succeeded(open.key->WriteNumber(open.name.c_str(), value)) ? exitCode::done
                                                                          : exitCode::noStore;
    });
}

// Needs the second version of the service's interface; a host without it can't take values out.
int RunSettingsUnset(const SettingsOptions& options) {
    return Change(options, [&](OpenKey& open) {
        ZEL::CountedPtr<ZEL::ISettingsKey2> key;
        if (Failed(open.key->QueryInterface(ZEL::iidSettingsKey2, key.ReceiveVoid())))
            return exitCode::noStore;
        return Succeeded(key->RemoveNumber(open.name.c_str())) ? exitCode::done
                                                               : TellAbsent(options);
    });
}

}  // namespace zel
