#include "hives.h"

// A user's settings are a file, ntuser.dat, that Windows mounts under HKEY_USERS when the user
// logs on. For one who is not logged on it is mounted here for a moment, which needs the privilege
// to restore files, and always unmounted again: a file that stays mounted would keep that user's
// next logon from its own settings.
//
// Texts are read as they are kept, with variables unexpanded, since they would be expanded with
// this process's own.

namespace wm {

namespace {

constexpr std::size_t mostValueBytes = 1U << 16;

// A user's settings under HKEY_USERS, loaded from a file and unloaded with the object.
class LoadedHive {
public:
    LoadedHive(const std::wstring& name, const std::wstring& file) : name_(name) {
        isLoaded_ = ::RegLoadKeyW(HKEY_USERS, name.c_str(), file.c_str()) == ERROR_SUCCESS;
    }
    ~LoadedHive() {
        if (isLoaded_)
            ::RegUnLoadKeyW(HKEY_USERS, name_.c_str());
    }
    LoadedHive(const LoadedHive&) = delete;
    LoadedHive& operator=(const LoadedHive&) = delete;

private:
    const std::wstring name_;
    bool isLoaded_ = false;
};

bool IsText(DWORD type) {
    return type == REG_SZ || type == REG_EXPAND_SZ;
}

// Stored texts end in a NUL, or in none when who wrote them forgot it.
std::wstring TextOf(const std::vector<wchar_t>& buffer, DWORD bytes) {
    const std::wstring text(buffer.data(), bytes / sizeof(wchar_t));
    return text.substr(0, text.find(L'\0'));
}

}  // namespace

RegistryKey::~RegistryKey() {
    if (key_ != nullptr)
        ::RegCloseKey(key_);
}

RegistryKey RegistryKey::Open(HKEY root, const std::wstring& path) noexcept {
    HKEY key = nullptr;
    return RegistryKey(::RegOpenKeyW(root, path.c_str(), &key) == ERROR_SUCCESS ? key : nullptr);
}

bool RegistryKey::ReadText(const wchar_t* name, std::wstring& text) const {
    std::vector<wchar_t> buffer(mostValueBytes / sizeof(wchar_t));
    DWORD type = REG_NONE, bytes = mostValueBytes;
    if (::RegQueryValueExW(key_, name, nullptr, &type, reinterpret_cast<BYTE*>(buffer.data()),
                           &bytes) != ERROR_SUCCESS ||
        !IsText(type))
        return false;
    text = TextOf(buffer, bytes);
    return true;
}

void RegistryKey::ReadTexts(std::vector<std::pair<std::wstring, std::wstring>>& out) const {
    constexpr DWORD mostNameCharacters = 16384;
    std::vector<wchar_t> name(mostNameCharacters), buffer(mostValueBytes / sizeof(wchar_t));
    for (DWORD index = 0;; ++index) {
        DWORD nameLength = mostNameCharacters, type = REG_NONE, bytes = mostValueBytes;
        const LSTATUS error = ::RegEnumValueW(key_, index, name.data(), &nameLength, nullptr, &type,
                                              reinterpret_cast<BYTE*>(buffer.data()), &bytes);
        if (error != ERROR_SUCCESS && error != ERROR_MORE_DATA)
            return;
        if (error == ERROR_SUCCESS && IsText(type))
            out.emplace_back(std::wstring(name.data(), nameLength), TextOf(buffer, bytes));
    }
}

CTempPrivileges::CTempPrivileges(const wchar_t* name) noexcept {
    TOKEN_PRIVILEGES wanted{};
    wanted.PrivilegeCount = 1;
    wanted.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    DWORD size = sizeof(former_);
    if (::OpenProcessToken(::GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &token_) ==
        0)
        token_ = nullptr;
    else if (::LookupPrivilegeValueW(nullptr, name, &wanted.Privileges[0].Luid) != 0)
        ::AdjustTokenPrivileges(token_, FALSE, &wanted, sizeof(former_), &former_, &size);
}

CTempPrivileges::~CTempPrivileges() {
    if (token_ == nullptr)
        return;
    if (former_.PrivilegeCount != 0)
        ::AdjustTokenPrivileges(token_, FALSE, &former_, 0, nullptr, nullptr);
    ::CloseHandle(token_);
}

bool ReadProfileEnvironment(MachineUser& user) {
    // Only a session has this key.
    const RegistryKey session = RegistryKey::Open(HKEY_USERS, user.sid + L"\\Volatile Environment");
    if (!session)
        return false;
    session.ReadTexts(user.variables);
    const RegistryKey kept = RegistryKey::Open(HKEY_USERS, user.sid + L"\\Environment");
    if (kept)
        kept.ReadTexts(user.variables);
    user.source = VariableSource::session;
    return true;
}

void ReadStoredEnvironment(MachineUser& user) {
    if (user.profileFolder.empty())
        return;  // the file would be one of the drive's root
    const LoadedHive hive(user.sid, user.profileFolder + L"\\ntuser.dat");
    // A hive that something else has loaded can be read all the same.
    const RegistryKey key = RegistryKey::Open(HKEY_USERS, user.sid + L"\\Environment");
    if (!key)
        return;
    key.ReadTexts(user.variables);
    user.source = VariableSource::stored;
}

}  // namespace wm
