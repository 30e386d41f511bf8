#include <windows.h>
// The others need it first.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "../expansions.h"
#include "common/machinetext.h"
#include "common/thismachine.h"
#include "common/windows/hives.h"
#include "support/system.h"

// The machine itself: its registry with users that the tests add, files of settings that they make,
// the drives that scripts/test has given Wine. All of it is the machine's own, so these tests run
// one at a time and take back what they add.

namespace wm {
namespace {

namespace fs = std::filesystem;

const std::wstring profiles = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList\\";
const std::wstring administrator = L"S-1-5-21-0-0-0-500";  // a person that Wine knows

// A key made by a test, gone with all below it at the end.
class MadeKey {
public:
    MadeKey(HKEY root, std::wstring path) : root_(root), path_(std::move(path)) {
        EXPECT_EQ(::RegCreateKeyExW(root_, path_.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                                    &key_, nullptr),
                  ERROR_SUCCESS);
    }
    ~MadeKey() {
        ::RegCloseKey(key_);
        ::RegDeleteTreeW(root_, path_.c_str());
    }
    MadeKey(const MadeKey&) = delete;
    MadeKey& operator=(const MadeKey&) = delete;

    HKEY Get() const { return key_; }
    void Set(const wchar_t* name, const std::wstring& text, DWORD type = REG_SZ) {
        Set(name, type, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
    }
    void Set(const wchar_t* name, DWORD type, const void* data, std::size_t bytes) {
        EXPECT_EQ(::RegSetValueExW(key_, name, 0, type, static_cast<const BYTE*>(data),
                                   static_cast<DWORD>(bytes)),
                  ERROR_SUCCESS);
    }

private:
    HKEY root_;
    std::wstring path_;
    HKEY key_ = nullptr;
};

bool IsThere(HKEY root, const std::wstring& path) {
    return static_cast<bool>(RegistryKey::Open(root, path));
}

bool HasPrivilege(const wchar_t* name) {
    ::HANDLE token = nullptr;
    PRIVILEGE_SET asked{1, PRIVILEGE_SET_ALL_NECESSARY, {}};
    BOOL held = FALSE;
    EXPECT_NE(::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token), 0);
    ::LookupPrivilegeValueW(nullptr, name, &asked.Privilege[0].Luid);
    ::PrivilegeCheck(token, &asked, &held);
    ::CloseHandle(token);
    return held != FALSE;
}

// A second user, with a profile folder of its own and settings that are in no session.
class SecondUser {
public:
    explicit SecondUser(const std::wstring& below = L"") {
        // Told with a variable, as the system itself writes it.
        ::SetEnvironmentVariableW(L"ZelTestProfiles", folder_.parent_path().c_str());
        profile_.Set(imagePath,
                     L"%ZelTestProfiles%\\" +
                         (below.empty() ? folder_.filename() : folder_.filename() / below).native(),
                     REG_EXPAND_SZ);
    }
    ~SecondUser() {
        // Wine leaves an empty key behind when it refuses a file.
        ::RegDeleteTreeW(HKEY_USERS, administrator.c_str());
        ZEL::test::RemoveTempFolder(folder_);
    }

    fs::path Settings() const { return folder_ / "ntuser.dat"; }
    const fs::path& Folder() const { return folder_; }

    void LoseFolder() { ::RegDeleteValueW(profile_.Get(), imagePath); }

    // Keeps variables as a user's settings do, in a file that nothing has loaded.
    void KeepVariables() { KeepVariables(Settings()); }
    void KeepVariables(const fs::path& file) {
        const CTempPrivileges saving(SE_BACKUP_NAME);
        MadeKey settings(HKEY_CURRENT_USER, L"Software\\ZelTestSettings");
        {
            MadeKey kept(settings.Get(), L"Environment");
            kept.Set(L"ZelKept", L"%USERPROFILE%\\kept", REG_EXPAND_SZ);
            kept.Set(L"ZelPlain", L"\u00E4");
            const DWORD number = 7;
            kept.Set(L"ZelNumber", REG_DWORD, &number, sizeof number);
            kept.Set(L"ZelUnended", REG_SZ, L"xyz", 2 * sizeof(wchar_t));
            EXPECT_EQ(::RegSaveKeyW(settings.Get(), file.c_str(), nullptr), ERROR_SUCCESS);
        }
    }

private:
    static constexpr const wchar_t* imagePath = L"ProfileImagePath";
    fs::path folder_ = ZEL::test::MakeTempFolder();
    MadeKey profile_{HKEY_LOCAL_MACHINE, profiles + administrator};
};

MachineUser FindUser(const std::wstring& sid) {
    std::vector<MachineUser> users;
    EXPECT_EQ(ThisMachine().LoadUsers(users), ZEL::hr::ok);
    for (MachineUser& user : users)
        if (user.sid == sid)
            return std::move(user);
    return {};
}

std::wstring VariableOf(const MachineUser& user, const std::wstring& name) {
    for (const auto& [known, value] : user.variables)
        if (known == name)
            return value;
    return L"(none)";
}

std::wstring OwnSid() {
    std::vector<std::wstring> sids;
    EXPECT_EQ(ThisMachine().ProfileSids(sids), ZEL::hr::ok);
    EXPECT_EQ(sids.size(), 1u);
    return sids.empty() ? std::wstring() : sids[0];
}

TEST(WindowsMachine, UsersAreProfilesOfPersons) {
    const std::wstring own = OwnSid();
    const SecondUser second;
    const MadeKey service(HKEY_LOCAL_MACHINE, profiles + L"S-1-5-18"),
        unknown(HKEY_LOCAL_MACHINE, profiles + L"S-1-5-21-9-9-9-1001"),
        group(HKEY_LOCAL_MACHINE, profiles + L"S-1-5-32-544"),
        noSid(HKEY_LOCAL_MACHINE, profiles + L"no sid"),
        longName(HKEY_LOCAL_MACHINE, profiles + std::wstring(255, L'S'));
    std::vector<std::wstring> sids;
    ASSERT_EQ(ThisMachine().ProfileSids(sids), ZEL::hr::ok);
    std::sort(sids.begin(), sids.end());
    EXPECT_EQ(sids, (std::vector<std::wstring>{own, administrator}));
    const MachineUser user = FindUser(administrator);
    EXPECT_EQ(user.account, L"Administrator");
    EXPECT_EQ(user.profileFolder, second.Folder().native()) << "its variable is expanded";
    EXPECT_EQ(user.source, VariableSource::none) << "there are no settings";
    EXPECT_TRUE(user.variables.empty());
}

TEST(WindowsMachine, SettingsThatAreNotLoadedAreReadAndLeft) {
    OwnSid();
    SecondUser second;
    second.KeepVariables();
    ASSERT_TRUE(fs::exists(second.Settings()));
    const bool hadPrivilege = HasPrivilege(SE_RESTORE_NAME);
    for (int i = 0; i < 2; ++i) {
        const MachineUser user = FindUser(administrator);
        EXPECT_EQ(user.source, VariableSource::stored);
        EXPECT_EQ(VariableOf(user, L"ZelKept"), L"%USERPROFILE%\\kept") << "as it is kept";
        EXPECT_EQ(VariableOf(user, L"ZelPlain"), L"\u00E4");
        EXPECT_EQ(VariableOf(user, L"ZelUnended"), L"xy");
        EXPECT_EQ(VariableOf(user, L"ZelNumber"), L"(none)");
        EXPECT_FALSE(IsThere(HKEY_USERS, administrator)) << "it is not left loaded";
        EXPECT_EQ(HasPrivilege(SE_RESTORE_NAME), hadPrivilege);
    }
    std::ofstream(second.Settings(), std::ios::binary | std::ios::trunc) << "no settings";
    EXPECT_EQ(FindUser(administrator).source, VariableSource::none);
}

TEST(WindowsMachine, SettingsThatSeveralReadAtOnceAreReadByAllAndLeft) {
    SecondUser second;
    second.KeepVariables();
    std::vector<std::thread> askers;
    for (int i = 0; i < 4; ++i)
        askers.emplace_back([] {
            for (int round = 0; round < 10; ++round)
                EXPECT_EQ(FindUser(administrator).source, VariableSource::stored);
        });
    for (std::thread& asker : askers)
        asker.join();
    EXPECT_FALSE(IsThere(HKEY_USERS, administrator)) << "it is not left loaded";
}

// Without a folder of its own a profile would have its settings in the root of the drive.
TEST(WindowsMachine, ProfileFoldersAreAnyLengthAndMayBeMissing) {
    const std::wstring longer(300, L'p');
    SecondUser second(longer);
    EXPECT_EQ(FindUser(administrator).profileFolder, (second.Folder() / longer).native());
    second.LoseFolder();
    second.KeepVariables(L"\\ntuser.dat");
    const MachineUser user = FindUser(administrator);
    ::DeleteFileW(L"\\ntuser.dat");
    EXPECT_EQ(user.profileFolder, L"");
    EXPECT_EQ(user.source, VariableSource::none);
}

TEST(WindowsMachine, SettingsThatOthersLoadedStayLoaded) {
    SecondUser second;
    second.KeepVariables();
    const CTempPrivileges loading(SE_RESTORE_NAME);
    ASSERT_EQ(::RegLoadKeyW(HKEY_USERS, administrator.c_str(), second.Settings().c_str()),
              ERROR_SUCCESS);
    EXPECT_EQ(VariableOf(FindUser(administrator), L"ZelPlain"), L"\u00E4");
    EXPECT_TRUE(IsThere(HKEY_USERS, administrator));
    const CTempPrivileges unloading(SE_RESTORE_NAME);  // the object in between took it away
    EXPECT_EQ(::RegUnLoadKeyW(HKEY_USERS, administrator.c_str()), ERROR_SUCCESS);
}

TEST(WindowsMachine, OfASessionWhatItsLogonComputedComesFirst) {
    const std::wstring own = OwnSid();
    MadeKey session(HKEY_USERS, own + L"\\Volatile Environment");
    session.Set(L"ZelTwice", L"session");
    const RegistryKey kept = RegistryKey::Open(HKEY_USERS, own + L"\\Environment");
    ASSERT_TRUE(kept);
    const wchar_t text[] = L"kept";
    for (const wchar_t* name : {L"ZelTwice", L"ZelOnce"})
        ASSERT_EQ(::RegSetValueExW(kept.Get(), name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text),
                                   sizeof text),
                  ERROR_SUCCESS);
    const MachineUser user = FindUser(own);
    for (const wchar_t* name : {L"ZelTwice", L"ZelOnce"})
        ::RegDeleteValueW(kept.Get(), name);
    EXPECT_EQ(user.source, VariableSource::session);
    EXPECT_EQ(VariableOf(user, L"ZelTwice"), L"session");
    EXPECT_EQ(VariableOf(user, L"ZelOnce"), L"kept");
}

TEST(WindowsMachine, AnswersFromTheSystem) {
    IMachineDescription& machine = ThisMachine();
    wchar_t windows[MAX_PATH] = {}, computer[MAX_COMPUTERNAME_LENGTH + 1] = {};
    DWORD length = MAX_COMPUTERNAME_LENGTH + 1;
    ASSERT_NE(::GetWindowsDirectoryW(windows, MAX_PATH), 0u);
    ASSERT_NE(::GetComputerNameW(computer, &length), 0);
    std::wstring text;
    EXPECT_GE(machine.OsMajorVersion(), 6u);
    EXPECT_FALSE(machine.IsArm());
    ASSERT_TRUE(machine.Folder(0x24 | folderFlag::dontVerify, text));
    EXPECT_EQ(text, windows);
    ASSERT_TRUE(machine.SystemDirectory(text));
    EXPECT_TRUE(ZEL::EqualsNoCase(text, std::wstring(windows) + L"\\system32"));
    ASSERT_TRUE(machine.ComputerName(text));
    EXPECT_EQ(text, computer);
    for (const int none : {0x1D, 0x1E, 0x39, 0x01, 0x0A, 0x11, 0x12, 0x3D, 0xFE})
        EXPECT_FALSE(machine.Folder(none | folderFlag::dontVerify, text))
            << none << " has no folder, whether the system says so or gives an empty one";
    const std::wstring longer(20000, L'v');
    ASSERT_NE(::SetEnvironmentVariableW(L"ZelTestLong", longer.c_str()), 0);
    ASSERT_TRUE(machine.ProcessVariable(L"zeltestlong", text));
    EXPECT_EQ(text, longer);
    EXPECT_FALSE(machine.ProcessVariable(L"ZelTestNone", text));
}

// scripts/test makes a drive of each kind in Wine's folder.
TEST(WindowsMachine, DrivesOfAllKindsHaveTheirTokens) {
    const RegistryKey made = RegistryKey::Open(HKEY_LOCAL_MACHINE, L"Software\\Wine\\Drives");
    std::wstring kind;
    if (!made || !made.ReadText(L"g:", kind))
        GTEST_SKIP() << "drives of all kinds are made by scripts/test";
    const auto expand = [](const wchar_t* path) {
        ZEL::CEnvironmentVariableBroker broker(ThisMachine());
        ZEL::PathSet out;
        EXPECT_EQ(ZEL::PathNormaliser(ThisMachine(), broker).ExpandPathVariants(path, out, false),
                  ZEL::hr::ok);
        return ZEL::test::Utf8Set(out);
    };
    using Texts = std::set<std::string>;
    EXPECT_EQ(expand(L"CSIDL_DRIVE_FIXED\\x"), (Texts{"C:\\x", "D:\\x", "Z:\\x"}));
    EXPECT_EQ(expand(L"CSIDL_DRIVE_CDROM\\x"), Texts{"E:\\x"});
    EXPECT_EQ(expand(L"CSIDL_DRIVE_REMOVABLE\\x"), Texts{"F:\\x"});
    EXPECT_EQ(expand(L"CSIDL_DRIVE_REMOTE\\x"), Texts{"G:\\x"});
    EXPECT_EQ(expand(L"CSIDL_DRIVE\\x"),
              (Texts{"C:\\x", "D:\\x", "E:\\x", "F:\\x", "G:\\x", "Z:\\x"}));
    EXPECT_EQ(expand(L"CSIDL_SYSTEM_DRIVE\\x"), Texts{"C:\\x"});
}

// Each place that a path stands for is one that the registry knows.
TEST(WindowsMachine, RedirectedAndVirtualisedKeysAreFound) {
    const std::wstring own = OwnSid();
    const MadeKey virtualised(HKEY_USERS,
                              own + L"_Classes\\VirtualStore\\Machine\\Software\\ZelTestKey"),
        plain(HKEY_LOCAL_MACHINE, L"Software\\ZelTestKey");
    for (const wchar_t* path : {L"HKLM\\Software\\ZelTestKey",
                                L"HKEY_LOCAL_MACHINE\\Software\\Wow6432Node\\ZelTestKey"}) {
        std::vector<std::wstring> out;
        ASSERT_EQ(ZEL::ExpandRegistryVariants(ThisMachine(), path, false, out), ZEL::hr::ok);
        ASSERT_EQ(out.size(), 2u);
        const std::wstring machine = L"HKEY_LOCAL_MACHINE\\", users = L"HKEY_USERS\\";
        ASSERT_TRUE(out[0].starts_with(machine) && out[1].starts_with(users));
        EXPECT_TRUE(IsThere(HKEY_LOCAL_MACHINE, out[0].substr(machine.size())));
        EXPECT_TRUE(IsThere(HKEY_USERS, out[1].substr(users.size())));
    }
}

// The machine and what paths stand for on it are left where the tests on Linux read them back.
TEST(WindowsMachine, IsDescribedWithWhatItsPathsStandFor) {
    SecondUser second;
    second.KeepVariables();
    std::string json;
    ASSERT_TRUE(DescribeMachine(ThisMachine(), &json));
    const std::string expansions = ZEL::test::ExpansionsOf(ThisMachine());
    const auto folder = ToUtf8Lossy(second.Folder().native());
    for (const char* own : {"\\kept", "\\AppData\\Roaming\\x", "\\AppData\\Local\\Temp\\x"})
        EXPECT_NE(expansions.find(folder + own), std::string::npos) << own << "\n" << expansions;
    const char* const place = std::getenv("ZEL_MACHINE_FOLDER");
    if (place == nullptr)
        GTEST_SKIP() << "there is nowhere to leave it";
    std::ofstream(fs::path(place) / "machine.json", std::ios::binary) << json;
    std::ofstream(fs::path(place) / "expansions.txt", std::ios::binary) << expansions;
}

}  // namespace
}  // namespace wm
