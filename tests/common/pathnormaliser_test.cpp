#include "common/pathnormaliser.h"

#include <gtest/gtest.h>

#include "common/foldertokens.h"
#include "common/patterntext.h"
#include "windowsmachine.h"

namespace ZEL {
namespace {

using test::Utf8Set;
using test::WideText;
using test::WindowsMachine;
using Texts = std::set<std::string>;

Texts Expand(wm::IMachineDescription& machine, const std::string& path, bool isPattern = false) {
    CEnvironmentVariableBroker broker(machine);
    PathSet out;
    EXPECT_EQ(
        PathNormaliser(machine, broker).ExpandPathVariants(WideText(path).c_str(), out, isPattern),
        hr::ok);
    return Utf8Set(out);
}

TEST(PathNormaliser, EveryFolderTokenStandsForItsFolder) {
    const struct {
        const char* name;
        int number;
        bool perUser;
    } rows[] = {
        {"DESKTOP", 0x00, true},
        {"INTERNET", 0x01, false},
        {"PROGRAMS", 0x02, true},
        {"CONTROLS", 0x03, false},
        {"PRINTERS", 0x04, true},
        {"PERSONAL", 0x05, true},
        {"FAVORITES", 0x06, true},
        {"STARTUP", 0x07, true},
        {"RECENT", 0x08, true},
        {"SENDTO", 0x09, true},
        {"BITBUCKET", 0x0A, false},
        {"STARTMENU", 0x0B, true},
        {"MYDOCUMENTS", 0x05, true},
        {"MYMUSIC", 0x0D, true},
        {"MYVIDEO", 0x0E, true},
        {"DESKTOPDIRECTORY", 0x10, true},
        {"DRIVES", 0x11, false},
        {"NETWORK", 0x12, false},
        {"NETHOOD", 0x13, true},
        {"FONTS", 0x14, false},
        {"TEMPLATES", 0x15, true},
        {"COMMON_STARTMENU", 0x16, false},
        {"COMMON_PROGRAMS", 0x17, false},
        {"COMMON_STARTUP", 0x18, false},
        {"COMMON_DESKTOPDIRECTORY", 0x19, false},
        {"APPDATA", 0x1A, true},
        {"PRINTHOOD", 0x1B, true},
        {"LOCAL_APPDATA", 0x1C, true},
        {"ALTSTARTUP", 0x1D, true},
        {"COMMON_ALTSTARTUP", 0x1E, false},
        {"COMMON_FAVORITES", 0x1F, false},
        {"INTERNET_CACHE", 0x20, true},
        {"COOKIES", 0x21, true},
        {"HISTORY", 0x22, true},
        {"COMMON_APPDATA", 0x23, false},
        {"WINDOWS", 0x24, false},
        {"SYSTEM", 0x25, false},
        {"MYPICTURES", 0x27, true},
        {"PROFILE", 0x28, true},
        {"SYSTEMX86", 0x29, false},
        {"PROGRAM_FILES_COMMONX86", 0x2C, false},
        {"PROGRAM_FILES_COMMON", 0x2B, false},
        {"PROGRAM_FILESX86", 0x2A, false},
        {"PROGRAM_FILES", 0x26, false},
        {"COMMON_TEMPLATES", 0x2D, false},
        {"COMMON_DOCUMENTS", 0x2E, false},
        {"COMMON_ADMINTOOLS", 0x2F, false},
        {"ADMINTOOLS", 0x30, true},
        {"CONNECTIONS", 0x31, false},
        {"COMMON_MUSIC", 0x35, false},
        {"COMMON_PICTURES", 0x36, false},
        {"COMMON_VIDEO", 0x37, false},
        {"RESOURCES_LOCALIZED", 0x39, false},
        {"RESOURCES", 0x38, false},
        {"COMMON_OEM_LINKS", 0x3A, false},
        {"CDBURN_AREA", 0x3B, true},
        {"COMPUTERSNEARME", 0x3D, false},
    };
    EXPECT_EQ(std::size(rows), FolderTokenTable().size());
    WindowsMachine machine;
    machine.unknownFolder = -1;
    for (const auto& row : rows) {
        std::wstring folder;
        ASSERT_TRUE(machine.Folder(row.number, folder));
        Texts expected, escaped;
        const auto expect = [&](const std::wstring& text) {
            expected.insert(wm::ToUtf8Lossy(text) + "\\x.exe");
            escaped.insert(wm::ToUtf8Lossy(EscapeForPattern(text)) + R"(\\x\.exe)");
        };
        expect(folder);
        const std::wstring alice = L"C:\\Users\\alice";
        if (row.perUser)
            expect(L"D:\\Profiles\\bob.CORP" + folder.substr(alice.size()));
        EXPECT_EQ(Expand(machine, std::string("csidl_") + row.name + "\\x.exe"), expected);
        EXPECT_EQ(Expand(machine, std::string("CSIDL_") + row.name + R"(\\x\.exe)", true), escaped);
    }
}

struct Case {
    const char* path;
    Texts expected;
};

void ExpectAll(wm::IMachineDescription& machine, const std::vector<Case>& cases, bool isPattern) {
    for (const Case& row : cases)
        EXPECT_EQ(Expand(machine, row.path, isPattern), row.expected) << row.path;
}

TEST(PathNormaliser, PlainPaths) {
    WindowsMachine machine;
    const std::vector<Case> cases = {
        {R"(C:\a.txt)", {R"(C:\a.txt)"}},
        {R"(CSIDL_SYSTEM\x)", {R"(C:\Windows\System32\x)"}},
        {R"(CSIDL_UNKNOWN\x)", {R"(CSIDL_UNKNOWN\x)"}},
        {R"(CSIDL_SYSTEMX\x)", {R"(CSIDL_SYSTEMX\x)"}},
        {R"(CSIDL_SYSTEM)", {"CSIDL_SYSTEM"}},
        {R"(C:\CSIDL_SYSTEM\x)", {R"(C:\CSIDL_SYSTEM\x)"}},
        {R"(CSIDL_DRIVES\x)", {R"(CSIDL_DRIVES\x)"}},
        {R"(CSIDL_DRIVE_FIXED\x)", {R"(C:\x)", R"(D:\x)"}},
        {R"(csidl_drive_removable\x)", {R"(R:\x)"}},
        {R"(CSIDL_DRIVE_REMOTE\x)", {R"(Z:\x)"}},
        {R"(CSIDL_DRIVE_CDROM\x)", {R"(E:\x)"}},
        {R"(CSIDL_DRIVE\x)", {R"(C:\x)", R"(D:\x)", R"(E:\x)", R"(R:\x)", R"(Z:\x)"}},
        {R"(CSIDL_SYSTEM_DRIVE\x)", {R"(C:\x)"}},
        {R"(%NOSUCH%\x)", {R"(%NOSUCH%\x)"}},
        {R"(%systemroot%\x)", {R"(C:\Windows\x)"}},
        {R"(%WINDIR%\ServicePackFiles\x)", {R"(C:\Windows\servicing\x)"}},
        {R"(%windir%\SYSTEM32\x)", {R"(C:\Windows\SYSTEM32\x)", R"(C:\Windows\SysWow64\x)"}},
        {R"(%PROGRAMFILES%\x)", {R"(C:\Program Files\x)", R"(C:\Program Files (x86)\x)"}},
        {R"(%CommonProgramFiles%\x)",
         {R"(C:\Program Files\Common Files\x)", R"(C:\Program Files (x86)\Common Files\x)"}},
        {R"(CSIDL_DRIVE_FIXED\%USERNAME%\x)",
         {R"(C:\alice\x)", R"(C:\bob\x)", R"(D:\alice\x)", R"(D:\bob\x)"}},
        {R"(%OneDrive%\x)", {R"(%OneDrive%\x)", R"(D:\Profiles\bob.CORP\OneDrive\x)"}},
        {R"(%Loop%\%Username%)", {R"(%Loop%\alice)", R"(%loop%\%Username%)"}},
        {R"(%Dollar%)", {"%Dollar%", R"($1\&)"}},
        {R"(a<b>c)", {"a%b%c"}},
        {R"(<USERNAME>)", {"%USERNAME%"}},
        {R"(100%)", {"100%"}},
        {R"(%a=b%USERNAME%)", {"%a=balice", "%a=bbob"}},
        {R"(%%USERNAME%)", {"alice", "bob"}},
        {R"(%=%USERNAME%)", {"%=alice", "%=bob"}},
        {"", {""}},
    };
    ExpectAll(machine, cases, false);
}

TEST(PathNormaliser, PatternPathsAreEscapedWhereTextIsPutIn) {
    WindowsMachine machine;
    const std::vector<Case> cases = {
        {R"(CSIDL_SYSTEM\\.*\.exe)", {R"(C:\\Windows\\System32\\.*\.exe)"}},
        {R"(CSIDL_SYSTEM\x)", {R"(CSIDL_SYSTEM\x)"}},
        {R"(CSIDL_DRIVE_FIXED\\x)", {R"(C:\\x)", R"(D:\\x)"}},
        {R"(CSIDL_DRIVE_REMOVABLE\\x)", {R"(R:\\x)"}},
        {R"(CSIDL_DRIVE_REMOTE\\x)", {R"(Z:\\x)"}},
        {R"(CSIDL_DRIVE_CDROM\\x)", {R"(E:\\x)"}},
        {R"(CSIDL_DRIVE\\x)", {R"(C:\\x)", R"(D:\\x)", R"(E:\\x)", R"(R:\\x)", R"(Z:\\x)"}},
        {R"(CSIDL_SYSTEM_DRIVE\\x)", {R"(C:\\x)"}},
        {R"(%USERPROFILE%\\.*)", {R"(C:\\Users\\alice\\.*)", R"(D:\\Profiles\\bob\.CORP\\.*)"}},
        {R"(%WINDIR%\\ServicePackFiles)", {R"(C:\\Windows\\servicing)"}},
        {R"(%WINDIR%\ServicePackFiles)", {R"(C:\\Windows\ServicePackFiles)"}},
        {R"(%WINDIR%\\System32)", {R"(C:\\Windows\\System32)", R"(C:\\Windows\\SysWow64)"}},
        {R"(%PROGRAMFILES%\\x)", {R"(C:\\Program Files\\x)", R"(C:\\Program Files \(x86\)\\x)"}},
        {R"(%COMMONPROGRAMFILES%\\x)",
         {R"(C:\\Program Files\\Common Files\\x)",
          R"(C:\\Program Files \(x86\)\\Common Files\\x)"}},
        {R"(%Own%)", {R"(A\+B\|)C)", "%Own%"}},
    };
    ExpectAll(machine, cases, true);
    EXPECT_EQ(EscapeForPattern(L"a\\.$^{}[]()|+*?b"), LR"(a\\\.\$\^\{\}\[\]\(\)\|)\+*?b)");
}

TEST(PathNormaliser, ArmAddsAThirdPlace) {
    WindowsMachine machine;
    machine.isArm = true;
    const std::vector<Case> cases = {
        {R"(%PROGRAMFILES%\x)",
         {R"(C:\Program Files\x)", R"(C:\Program Files (x86)\x)", R"(C:\Program Files (Arm)\x)"}},
        {R"(%COMMONPROGRAMFILES%\x)",
         {R"(C:\Program Files\Common Files\x)", R"(C:\Program Files (x86)\Common Files\x)",
          R"(C:\Program Files (Arm)\Common Files\x)"}},
        {R"(%WINDIR%\System32\x)",
         {R"(C:\Windows\System32\x)", R"(C:\Windows\SysWow64\x)", R"(C:\Windows\SysArm32\x)"}},
    };
    ExpectAll(machine, cases, false);
    EXPECT_EQ(Expand(machine, R"(%PROGRAMFILES%\\x)", true),
              (Texts{R"(C:\\Program Files\\x)", R"(C:\\Program Files \(x86\)\\x)",
                     R"(C:\\Program Files \(Arm\)\\x)"}));
    EXPECT_EQ(Expand(machine, R"(%WINDIR%\\System32)", true).count(R"(C:\\Windows\\SysArm32)"), 1u);
}

TEST(PathNormaliser, OldWindowsHasNoServicing) {
    WindowsMachine machine;
    machine.majorVersion = 5;
    EXPECT_EQ(Expand(machine, R"(%WINDIR%\ServicePackFiles\x)"),
              Texts{R"(C:\Windows\ServicePackFiles\x)"});
}

TEST(PathNormaliser, WithoutUsersAPathStandsForItself) {
    WindowsMachine machine;
    machine.users.clear();
    machine.listResult = hr::fail;
    EXPECT_EQ(Expand(machine, "%WINDIR%"), Texts{"%WINDIR%"});
    EXPECT_EQ(Expand(machine, R"(CSIDL_DRIVE_FIXED\<)"), (Texts{R"(C:\<)", R"(D:\<)"}));
    EXPECT_EQ(Expand(machine, R"(CSIDL_APPDATA\x)"), Texts{R"(CSIDL_APPDATA\x)"});
}

TEST(Broker, WorksOutWhatALogonWould) {
    WindowsMachine machine;
    machine.isArm = true;
    CEnvironmentVariableBroker broker(machine);
    const std::pair<const wchar_t*, const wchar_t*> rows[] = {
        {L"HOMEDRIVE", L"D:"},
        {L"HOMEPATH", L"\\Profiles\\bob.CORP"},
        {L"LOGONSERVER", L"\\\\DESK"},
        {L"USERDOMAIN", L"CORP"},
        {L"USERNAME", L"bob"},
        {L"PUBLIC", L"C:\\Users\\Public\\Documents"},
        {L"WINDIR", L"C:\\Windows"},
        {L"USERPROFILE", L"D:\\Profiles\\bob.CORP"},
        {L"LOCALAPPDATA", L"D:\\Profiles\\bob.CORP\\AppData\\Local"},
        {L"TEMP", L"D:\\Profiles\\bob.CORP\\AppData\\Local\\Temp"},
        {L"TMP", L"D:\\Profiles\\bob.CORP\\AppData\\Local\\Temp"},
        {L"ALLUSERSPROFILE", L"C:\\ProgramData"},
        {L"PROGRAMDATA", L"C:\\ProgramData"},
        {L"COMMONPROGRAMFILES", L"C:\\Program Files\\Common Files"},
        {L"COMMONPROGRAMFILES(X86)", L"C:\\Program Files (x86)\\Common Files"},
        {L"PROGRAMFILES", L"C:\\Program Files"},
        {L"PROGRAMFILES(X86)", L"C:\\Program Files (x86)"},
        {L"COMMONPROGRAMFILES(ARM)", L"C:\\Program Files (Arm)\\Common Files"},
        {L"PROGRAMFILES(ARM)", L"C:\\Program Files (Arm)"},
        {L"APPDATA", L"D:\\Profiles\\bob.CORP\\AppData\\Roaming"},
        {L"COMPUTERNAME", L"DESK"},
        {L"onedrive", L"%USERPROFILE%\\OneDrive"},
    };
    std::wstring value;
    for (const auto& [name, expected] : rows) {
        EXPECT_EQ(broker.LookupUserVariable(L"s-1-5-21-1-2-3-1002", name, value), 1);
        EXPECT_EQ(value, expected) << wm::ToUtf8Lossy(name);
    }
    EXPECT_EQ(broker.LookupUserVariable(test::aliceSid, L"UserName", value), 1);
    EXPECT_EQ(value, L"alice") << "what was worked out wins over what is stored";
    EXPECT_EQ(broker.LookupUserVariable(test::bobSid, L"Own", value), 0) << "another user's";
}

TEST(Broker, UnknownFactsGiveNoVariables) {
    WindowsMachine machine;
    machine.users[0].account.clear();
    machine.users[0].domain.clear();
    machine.users[1].profileFolder = L"\\\\server\\profiles\\bob";
    CEnvironmentVariableBroker broker(machine);
    std::wstring value;
    EXPECT_EQ(broker.LookupUserVariable(test::aliceSid, L"USERNAME", value), 1);
    EXPECT_EQ(value, L"another") << "what is stored holds";
    EXPECT_EQ(broker.LookupUserVariable(test::aliceSid, L"USERDOMAIN", value), 0);
    EXPECT_EQ(broker.LookupUserVariable(test::bobSid, L"HOMEDRIVE", value), 0) << "a share";
    EXPECT_EQ(broker.LookupUserVariable(test::bobSid, L"TMP", value), 1);
    EXPECT_EQ(value, L"\\\\server\\profiles\\bob\\AppData\\Local\\Temp");
}

TEST(Broker, KnowsWhereVariablesComeFrom) {
    WindowsMachine machine;
    machine.users[0].source = wm::VariableSource::session;
    machine.users[1].source = wm::VariableSource::none;
    CEnvironmentVariableBroker broker(machine);
    std::wstring value;
    EXPECT_EQ(broker.LookupUserVariable(test::aliceSid, L"USERNAME", value), 1);
    EXPECT_EQ(value, L"another") << "a session's variables are complete";
    EXPECT_EQ(broker.LookupUserVariable(test::aliceSid, L"USERPROFILE", value), 0);
    EXPECT_EQ(broker.LookupUserVariable(test::bobSid, L"OneDrive", value), 0);
    EXPECT_EQ(broker.LookupUserVariable(test::bobSid, L"SystemRoot", value), 1);
    EXPECT_EQ(value, L"C:\\Windows") << "the process's own";
}

}  // namespace
}  // namespace ZEL
