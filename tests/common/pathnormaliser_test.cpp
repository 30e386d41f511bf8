#include "common/pathnormaliser.h"

#include <gtest/gtest.h>

#include <sstream>

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
    // Names and numbers; u: each user has one.
    std::istringstream rows(
        "DESKTOP 00 u; INTERNET 01; PROGRAMS 02 u; CONTROLS 03; PRINTERS 04 u; "
        "PERSONAL 05 u; FAVORITES 06 u; STARTUP 07 u; RECENT 08 u; SENDTO 09 u; "
        "BITBUCKET 0A; STARTMENU 0B u; MYDOCUMENTS 05 u; MYMUSIC 0D u; MYVIDEO 0E u; "
        "DESKTOPDIRECTORY 10 u; DRIVES 11; NETWORK 12; NETHOOD 13 u; FONTS 14; "
        "TEMPLATES 15 u; COMMON_STARTMENU 16; COMMON_PROGRAMS 17; COMMON_STARTUP 18; "
        "COMMON_DESKTOPDIRECTORY 19; APPDATA 1A u; PRINTHOOD 1B u; LOCAL_APPDATA 1C u; "
        "ALTSTARTUP 1D u; COMMON_ALTSTARTUP 1E; COMMON_FAVORITES 1F; INTERNET_CACHE 20 u; "
        "COOKIES 21 u; HISTORY 22 u; COMMON_APPDATA 23; WINDOWS 24; SYSTEM 25; "
        "MYPICTURES 27 u; PROFILE 28 u; SYSTEMX86 29; PROGRAM_FILES_COMMONX86 2C; "
        "PROGRAM_FILES_COMMON 2B; PROGRAM_FILESX86 2A; PROGRAM_FILES 26; "
        "COMMON_TEMPLATES 2D; COMMON_DOCUMENTS 2E; COMMON_ADMINTOOLS 2F; ADMINTOOLS 30 u; "
        "CONNECTIONS 31; COMMON_MUSIC 35; COMMON_PICTURES 36; COMMON_VIDEO 37; "
        "RESOURCES_LOCALIZED 39; RESOURCES 38; COMMON_OEM_LINKS 3A; CDBURN_AREA 3B u; "
        "COMPUTERSNEARME 3D");
    std::size_t count = 0;
    WindowsMachine machine;
    machine.unknownFolder = -1;
    for (std::string row; std::getline(rows >> std::ws, row, ';'); ++count) {
        std::istringstream fields(row);
        std::string name, perUser;
        int number = 0;
        fields >> name >> std::hex >> number >> perUser;
        std::wstring folder;
        ASSERT_TRUE(machine.Folder(number, folder));
        Texts expected, escaped;
        const auto expect = [&](const std::wstring& text) {
            expected.insert(wm::ToUtf8Lossy(text) + "\\x.exe");
            escaped.insert(wm::ToUtf8Lossy(EscapeForPattern(text)) + R"(\\x\.exe)");
        };
        expect(folder);
        const std::wstring alice = L"C:\\Users\\alice";
        if (perUser == "u")
            expect(L"D:\\Profiles\\bob.CORP" + folder.substr(alice.size()));
        EXPECT_EQ(Expand(machine, "csidl_" + name + "\\x.exe"), expected);
        EXPECT_EQ(Expand(machine, "CSIDL_" + name + R"(\\x\.exe)", true), escaped);
    }
    EXPECT_EQ(count, FolderTokenTable().size());
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
