#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <optional>
#include <string_view>

#include "common/linux/userdirectories.h"
#include "common/patterntext.h"
#include "common/textbridge.h"
#include "common/thismachine.h"

// This machine in the terms of a Windows one, as far as it has a counterpart: people's accounts are
// users, with S-1-22-1-<number> for a SID, folders are those of the desktop's standard, and there
// are neither drives nor a registry. What has no counterpart does not exist, so a path that names
// it stands for itself. The version is 0, which switches off all that newer versions of Windows
// added.

namespace wm {

namespace {

using ZEL::HRESULT;
namespace hr = ZEL::hr;

// Accounts of people; those of the system stand below, the one of nobody above.
constexpr unsigned long firstUserNumber = 1000;
constexpr unsigned long lastUserNumber = 60000;

struct MachineFolder {
    int folder;
    const wchar_t* path;
};
constexpr MachineFolder machineFolders[] = {
    {0x14, L"/usr/share/fonts"},
    {0x17, L"/usr/share/applications"},
    {0x18, L"/etc/xdg/autostart"},
};

struct Account {
    std::string name;
    unsigned long number;
    std::string home;
};

// name:password:number:group:remarks:home:shell
//
// A line that is cut off has empty fields at its end; without a number it is no account.
std::optional<Account> ParseAccount(const std::string& line) {
    std::string fields[7];
    std::size_t at = 0;
    for (std::string& field : fields) {
        const std::size_t end = std::min(line.find(':', at), line.size());
        field = line.substr(at, end - at);
        at = std::min(end + 1, line.size());
    }
    char* end = nullptr;
    const unsigned long number = std::strtoul(fields[2].c_str(), &end, 10);
    const bool isNumber = !fields[2].empty() && *end == '\0';
    if (!isNumber || number < firstUserNumber || number > lastUserNumber || fields[0].empty())
        return std::nullopt;
    return Account{fields[0], number, fields[5]};
}

// From the local file alone: an account of a directory service is not asked for over the network in
// the middle of a query.
template <typename Visit>
HRESULT ForEachAccount(Visit&& visit) {
    std::ifstream file("/etc/passwd");
    if (!file)
        return hr::fail;
    for (std::string line; std::getline(file, line);)
        if (const auto account = ParseAccount(line))
            visit(*account);
    return hr::ok;
}

std::wstring SidOf(const Account& account) {
    return L"S-1-22-1-" + std::to_wstring(account.number);
}

// Texts that are not UTF-8 count as absent.
std::wstring Wide(const std::string& utf8) {
    std::wstring wide;
    return ToWide(utf8, wide) ? wide : std::wstring();
}

class LinuxMachine final : public IMachineDescription {
public:
    std::uint32_t OsMajorVersion() override { return 0; }  // no version of Windows
    bool IsArm() override { return false; }

    HRESULT ProfileSids(std::vector<std::wstring>& sids) override {
        return ForEachAccount([&](const Account& account) { sids.push_back(SidOf(account)); });
    }

    HRESULT LoadUsers(std::vector<MachineUser>& users) override {
        std::wstring domain;
        ComputerName(domain);
        return ForEachAccount([&](const Account& account) {
            const std::wstring name = Wide(account.name), home = Wide(account.home);
            users.push_back({SidOf(account),
                             name,
                             domain,
                             home,
                             VariableSource::stored,
                             {{L"HOME", home}, {L"USER", name}, {L"LOGNAME", name}}});
        });
    }

    bool Folder(int folder, std::wstring& path) override {
        for (const MachineFolder& row : machineFolders) {
            if (row.folder != (folder & folderFlag::number))
                continue;
            path = row.path;
            return true;
        }
        return false;
    }

    bool UserFolder(const MachineUser& user, int folder, std::wstring& path) override {
        std::string home, found;
        return ToUtf8(user.profileFolder, home) &&
               FindUserDirectory(home, folder & folderFlag::number, &found) && ToWide(found, path);
    }

    std::uint32_t DriveType(wchar_t) override { return driveType::none; }
    bool SystemDirectory(std::wstring&) override { return false; }

    // The exact name first: here two variables may differ in case alone.
    bool ProcessVariable(const std::wstring& name, std::wstring& value) override {
        std::string narrow;
        if (!ToUtf8(name, narrow))
            return false;
        if (const char* const exact = std::getenv(narrow.c_str()))
            return ToWide(exact, value);
        for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
            const std::string_view text = *entry;
            const std::size_t sign = text.find('=');
            std::wstring other;
            if (sign != std::string_view::npos && ToWide(text.substr(0, sign), other) &&
                ZEL::EqualsNoCase(other, name))
                return ToWide(text.substr(sign + 1), value);
        }
        return false;
    }

    bool ComputerName(std::wstring& name) override {
        char buffer[256] = {};
        return ::gethostname(buffer, sizeof(buffer) - 1) == 0 && ToWide(buffer, name);
    }
};

}  // namespace

IMachineDescription& ThisMachine() noexcept {
    static LinuxMachine machine;
    return machine;
}

}  // namespace wm
