#include "common/registrynormaliser.h"

#include <gtest/gtest.h>

#include "windowsmachine.h"

namespace ZEL {
namespace {

using test::WideText;
using test::WindowsMachine;
using Texts = std::vector<std::string>;

Texts Expand(WindowsMachine& machine, const std::string& path, bool isPattern = false) {
    std::vector<std::wstring> out;
    EXPECT_EQ(ExpandRegistryVariants(machine, WideText(path).c_str(), isPattern, out), hr::ok);
    Texts texts;
    for (const std::wstring& text : out)
        texts.push_back(wm::ToUtf8Lossy(text));
    return texts;
}

// "@" stands for the text up to and with a user's SID: HKEY_USERS\SID.
Texts ForUsers(std::string rest, bool isPattern = false) {
    const std::string root = isPattern ? R"(HKEY_USERS\\)" : R"(HKEY_USERS\)";
    return {root + "S-1-5-21-1-2-3-1001" + rest, root + "S-1-5-21-1-2-3-1002" + rest};
}

Texts Joined(Texts a, const Texts& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

const char* const virtualCopy = R"(_Classes\VirtualStore\Machine\Software\x)";
const char* const virtualPattern = R"(_Classes\\VirtualStore\\Machine\\Software\\x)";

TEST(RegistryNormaliser, EveryRowHasItsEffect) {
    const Texts software = Joined({R"(HKEY_LOCAL_MACHINE\Software\x)"}, ForUsers(virtualCopy));
    const struct {
        const char* path;
        Texts expected;
    } rows[] = {
        {R"(HKEY_LOCAL_MACHINE\Software\x)", software},
        {R"(HKLM\Software\x)", software},
        {R"(HKLM\System\x)", {R"(HKEY_LOCAL_MACHINE\System\x)"}},
        {"hklm", {"HKEY_LOCAL_MACHINE"}},
        {R"(HKEY_CURRENT_USER\Software\x)", ForUsers(R"(\Software\x)")},
        {R"(HKCU\Software\x)", ForUsers(R"(\Software\x)")},
        {"HKCU", ForUsers("")},
        {R"(HKEY_CLASSES_ROOT\.txt)", ForUsers(R"(_Classes\.txt)")},
        {R"(hkcr\.txt)", ForUsers(R"(_Classes\.txt)")},
        {R"(HKEY_USERS\S-1-5-21-9-9-9-500\x)", ForUsers(R"(\x)")},
        {R"(HKU\S-1-5-21-1-2-3-1001\x)", ForUsers(R"(\x)")},
        {R"(HKU\.DEFAULT\x)", {R"(HKEY_USERS\.DEFAULT\x)"}},
        {R"(HKU\S-1-5-18\x)", {R"(HKEY_USERS\S-1-5-18\x)"}},
        {R"(HKU\S-1-5-21-1-2-3-1001_Classes\VirtualStore\Machine\Software\x)", software},
        // The row of a user's classes never gets such a text.
        {R"(HKU\S-1-5-21-1-2-3-1001_Classes\x)", ForUsers(R"(\x)")},
        {R"(HKLM\Software\Wow6432Node\x)", software},
        {R"(HKLM\SOFTWARE\wow6432node\x)", software},
        {R"(HKLM\Software\Classes\Wow6432Node\x)",
         Joined({R"(HKEY_LOCAL_MACHINE\Software\Classes\x)"},
                ForUsers(R"(_Classes\VirtualStore\Machine\Software\Classes\x)"))},
        {R"(%hku%\x)", ForUsers(R"(\x)")},
        {R"(%HKUClasses%\x)", ForUsers(R"(_Classes\x)")},
        {R"(%HKUClasses%%HKU%\x)", ForUsers(R"(\x)")},
        {R"(x\HKLM\Software)", {R"(x\HKLM\Software)"}},
    };
    WindowsMachine machine;
    for (const auto& row : rows)
        EXPECT_EQ(Expand(machine, row.path), row.expected) << row.path;
}

TEST(RegistryNormaliser, PatternsHaveDoubledSeparators) {
    const Texts software =
        Joined({R"(HKEY_LOCAL_MACHINE\\Software\\x)"}, ForUsers(virtualPattern, true));
    const struct {
        const char* path;
        Texts expected;
    } rows[] = {
        {R"(HKEY_LOCAL_MACHINE\\Software\\x)", software},
        {R"(HKLM\\Software\\Wow6432Node\\x)", software},
        {R"(HKLM\\Software\\Classes\\Wow6432Node\\x)",
         Joined({R"(HKEY_LOCAL_MACHINE\\Software\\Classes\\x)"},
                ForUsers(R"(_Classes\\VirtualStore\\Machine\\Software\\Classes\\x)", true))},
        {R"(HKU\\S-1-5-21-1-2-3-1001_Classes\\VirtualStore\\Machine\\Software\\x)", software},
        {R"(HKEY_USERS\\S-1-5-21-1-2-3-1001\\.*)", ForUsers(R"(\\.*)", true)},
        {R"(HKU\S-1-5-21-1-2-3-1001\x)", {R"(HKEY_USERS\S-1-5-21-1-2-3-1001\x)"}},
        {R"(HKEY_CURRENT_USER\\x)", ForUsers(R"(\\x)", true)},
        {R"(HKEY_CLASSES_ROOT\\x)", ForUsers(R"(_Classes\\x)", true)},
        {R"(HKLM\Software)", {R"(HKEY_LOCAL_MACHINE\Software)"}},
    };
    WindowsMachine machine;
    for (const auto& row : rows)
        EXPECT_EQ(Expand(machine, row.path, true), row.expected) << row.path;
}

TEST(RegistryNormaliser, OldWindowsVirtualisesNothing) {
    WindowsMachine machine;
    machine.majorVersion = 5;
    EXPECT_EQ(Expand(machine, R"(HKLM\Software\x)"), Texts{R"(HKEY_LOCAL_MACHINE\Software\x)"});
}

TEST(RegistryNormaliser, FailsWhenUsersAreNeededAndCantBeListed) {
    WindowsMachine machine;
    machine.listResult = hr::accessDenied;
    std::vector<std::wstring> out;
    EXPECT_EQ(ExpandRegistryVariants(machine, LR"(HKCU\x)", false, out), hr::accessDenied);
    EXPECT_EQ(ExpandRegistryVariants(machine, LR"(HKLM\System)", false, out), hr::ok);
    EXPECT_EQ(ExpandRegistryVariants(machine, nullptr, false, out), hr::invalidArgument);
}

}  // namespace
}  // namespace ZEL
