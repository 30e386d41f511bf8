#include <windows.h>
// The others need it first.
#include <sddl.h>
#include <shlobj.h>

#include <optional>

#include "common/lock.h"
#include "common/neverdestroyed.h"
#include "common/thismachine.h"
#include "hives.h"

// The machine as Windows tells it. Users are the profiles whose SID belongs to a person's account;
// those of services and groups have no paths that a query would mean. The list is read anew for
// each path, as accounts come and go, but what can't change while the system runs (version, kind
// of processor) is asked once.
//
// What older versions lack (IsWow64Process2) is looked up by name, so that one program runs on
// all.

namespace wm {

namespace {

namespace hr = ZEL::hr;

constexpr const wchar_t* profileList =
    L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList";

ZEL::HRESULT ToResult(LSTATUS error) {
    return error == ERROR_SUCCESS ? hr::ok : ZEL::FromWin32(static_cast<std::uint32_t>(error));
}

std::uint32_t ReadMajorVersion() {
    using GetVersionFunction = LONG(WINAPI*)(OSVERSIONINFOW*);
    OSVERSIONINFOW info{};
    info.dwOSVersionInfoSize = sizeof(info);
    const HMODULE library = ::GetModuleHandleW(L"ntdll.dll");
    // The documented function tells programs without a manifest an older version.
    const auto get = reinterpret_cast<GetVersionFunction>(
        reinterpret_cast<void*>(::GetProcAddress(library, "RtlGetVersion")));
    return get != nullptr && get(&info) == 0 ? info.dwMajorVersion : 0;
}

bool ReadSystemDirectory(std::wstring& path) {
    wchar_t buffer[MAX_PATH] = {};
    const UINT length = ::GetSystemDirectoryW(buffer, MAX_PATH);
    path.assign(buffer, length < MAX_PATH ? length : 0);
    return !path.empty();
}

bool ReadIsArm() {
    constexpr USHORT machineArm64 = 0xAA64;
    using Function = BOOL(WINAPI*)(::HANDLE, USHORT*, USHORT*);
    std::wstring directory;
    if (!ReadSystemDirectory(directory))
        return false;
    const HMODULE library = ::LoadLibraryW((directory + L"\\kernel32.dll").c_str());
    if (library == nullptr)
        return false;
    const auto ask = reinterpret_cast<Function>(
        reinterpret_cast<void*>(::GetProcAddress(library, "IsWow64Process2")));
    USHORT process = 0, native = 0;
    const bool isArm = ask != nullptr && ask(::GetCurrentProcess(), &process, &native) != 0 &&
                       native == machineArm64;
    ::FreeLibrary(library);
    return isArm;
}

struct AccountName {
    std::wstring account, domain;
};

// Nothing for an account that is no person's.
std::optional<AccountName> LookupUser(const std::wstring& sidText) {
    PSID sid = nullptr;
    if (::ConvertStringSidToSidW(sidText.c_str(), &sid) == 0)
        return std::nullopt;
    wchar_t account[256] = {}, domain[256] = {};
    DWORD accountLength = 256, domainLength = 256;
    SID_NAME_USE use = SidTypeUnknown;
    const BOOL found =
        ::LookupAccountSidW(nullptr, sid, account, &accountLength, domain, &domainLength, &use);
    ::LocalFree(sid);
    if (found == 0 || use != SidTypeUser)
        return std::nullopt;
    return AccountName{account, domain};
}

// Calls `visit` with the SID text and the names of each user's profile.
template <typename Visit>
ZEL::HRESULT ForEachProfile(Visit&& visit) {
    HKEY opened = nullptr;
    const LSTATUS error = ::RegOpenKeyW(HKEY_LOCAL_MACHINE, profileList, &opened);
    if (error != ERROR_SUCCESS)
        return ToResult(error);
    const RegistryKey key(opened);
    for (DWORD index = 0;; ++index) {
        wchar_t name[256] = {};
        DWORD length = 256;
        const LSTATUS listed =
            ::RegEnumKeyExW(key.Get(), index, name, &length, nullptr, nullptr, nullptr, nullptr);
        if (listed == ERROR_NO_MORE_ITEMS)
            return hr::ok;
        if (listed == ERROR_MORE_DATA)
            continue;
        if (listed != ERROR_SUCCESS)
            return ToResult(listed);
        if (const auto user = LookupUser(name))
            visit(std::wstring(name), *user);
    }
}

std::wstring ProfileFolderOf(const std::wstring& sid) {
    const std::wstring path = std::wstring(profileList) + L"\\" + sid;
    const RegistryKey key = RegistryKey::Open(HKEY_LOCAL_MACHINE, path);
    std::wstring folder;
    if (!key || !key.ReadText(L"ProfileImagePath", folder))
        return {};
    const DWORD size = ::ExpandEnvironmentStringsW(folder.c_str(), nullptr, 0);
    std::wstring expanded(size, L'\0');
    const DWORD length = ::ExpandEnvironmentStringsW(folder.c_str(), expanded.data(), size);
    if (length == 0 || length > size)  // another thread may have made it longer
        return folder;
    expanded.resize(length - 1);
    return expanded;
}

class WindowsMachine final : public IMachineDescription {
public:
    std::uint32_t OsMajorVersion() override {
        static const std::uint32_t version = ReadMajorVersion();
        return version;
    }
    bool IsArm() override {
        static const bool isArm = ReadIsArm();
        return isArm;
    }

    ZEL::HRESULT ProfileSids(std::vector<std::wstring>& sids) override {
        return ForEachProfile(
            [&](const std::wstring& sid, const AccountName&) { sids.push_back(sid); });
    }

    // One at a time: the privilege is the process's, and settings that somebody reads stay loaded.
    ZEL::HRESULT LoadUsers(std::vector<MachineUser>& users) override {
        static NeverDestroyed<Lock> lock;
        const Hold hold(*lock);
        const CTempPrivileges privileges(SE_RESTORE_NAME);
        return ForEachProfile([&](const std::wstring& sid, const AccountName& name) {
            MachineUser user;
            user.sid = sid;
            user.account = name.account;
            user.domain = name.domain;
            user.profileFolder = ProfileFolderOf(sid);
            if (!ReadProfileEnvironment(user))
                ReadStoredEnvironment(user);
            users.push_back(std::move(user));
        });
    }

    bool Folder(int folder, std::wstring& path) override {
        wchar_t buffer[MAX_PATH] = {};
        if (::SHGetFolderPathW(nullptr, folder, nullptr, SHGFP_TYPE_CURRENT, buffer) != S_OK)
            return false;
        path = buffer;
        return true;
    }
    // The shell tells those of the calling account alone.
    bool UserFolder(const MachineUser&, int, std::wstring&) override { return false; }

    std::uint32_t DriveType(wchar_t letter) override {
        wchar_t root[] = L"_:\\";
        root[0] = letter;
        return ::GetDriveTypeW(root);
    }
    bool SystemDirectory(std::wstring& path) override { return ReadSystemDirectory(path); }

    bool ProcessVariable(const std::wstring& name, std::wstring& value) override {
        const DWORD size = ::GetEnvironmentVariableW(name.c_str(), nullptr, 0);
        if (size == 0)
            return false;
        value.resize(size);
        const DWORD length = ::GetEnvironmentVariableW(name.c_str(), value.data(), size);
        value.resize(length < size ? length : 0);
        return !value.empty();
    }

    bool ComputerName(std::wstring& name) override {
        wchar_t buffer[MAX_COMPUTERNAME_LENGTH + 1] = {};
        DWORD length = MAX_COMPUTERNAME_LENGTH + 1;
        if (::GetComputerNameW(buffer, &length) == 0)
            return false;
        name.assign(buffer, length);
        return true;
    }
};

}  // namespace

IMachineDescription& ThisMachine() noexcept {
    static WindowsMachine machine;
    return machine;
}

}  // namespace wm
