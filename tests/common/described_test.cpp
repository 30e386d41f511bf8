#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "common/describedmachine.h"
#include "common/foldertokens.h"
#include "common/hostservices.h"
#include "common/machinetext.h"
#include "common/registrynormaliser.h"
#include "expansions.h"
#include "zelstore/query/machinepaths.h"
#include "zelstore/schema/eventfields.h"

namespace ZEL {
namespace {

using test::Utf8Set;
using test::WindowsMachine;

std::unique_ptr<wm::DescribedMachine> Describe(wm::IMachineDescription& machine) {
    std::string json, error;
    EXPECT_TRUE(wm::DescribeMachine(machine, &json));
    auto described = wm::DescribedMachine::Parse(json, &error);
    EXPECT_NE(described, nullptr) << error << "\n" << json;
    return described;
}

PathSet Expand(wm::IMachineDescription& machine, const std::wstring& path, bool isPattern) {
    CEnvironmentVariableBroker broker(machine);
    PathSet out;
    EXPECT_EQ(PathNormaliser(machine, broker).ExpandPathVariants(path.c_str(), out, isPattern),
              hr::ok);
    return out;
}

TEST(Described, StandsInForTheMachineItDescribes) {
    for (const bool isArm : {false, true}) {
        WindowsMachine machine;
        machine.isArm = isArm;
        machine.users[0].account = L"al\"\\\u00e9\x1f";
        machine.users[0].source = wm::VariableSource::session;
        const auto described = Describe(machine);
        ASSERT_NE(described, nullptr);
        std::vector<std::wstring> paths = {L"%PROGRAMFILES%\\x", L"%WINDIR%\\System32\\x",
                                           L"%OneDrive%",        L"%Own%",
                                           L"%USERNAME%",        L"%TEMP%\\x",
                                           L"CSIDL_DRIVE\\x",    L"%SystemRoot%",
                                           L"%USERDOMAIN%",      L"CSIDL_SYSTEM_DRIVE\\x",
                                           L"%LOGONSERVER%",     L"%ProgramW6432%",
                                           L"%COMPUTERNAME%",    L"%ComSpec%"};
        for (const FolderToken& row : FolderTokenTable())
            paths.push_back(std::wstring(L"CSIDL_") + row.name + L"\\x");
        for (const std::wstring& path : paths)
            EXPECT_EQ(Utf8Set(Expand(*described, path, false)),
                      Utf8Set(Expand(machine, path, false)))
                << wm::ToUtf8Lossy(path);
        std::vector<std::wstring> expected, got;
        ASSERT_EQ(ExpandRegistryVariants(machine, L"HKLM\\Software\\x", false, expected), hr::ok);
        ASSERT_EQ(ExpandRegistryVariants(*described, L"HKLM\\Software\\x", false, got), hr::ok);
        EXPECT_EQ(got, expected);
    }
}

// What a real one wrote of itself, and what its paths stood for there.
TEST(Described, StandsInForAMachineOnAnotherSystem) {
    const auto read = [](const char* name) {
        std::ostringstream text;
        text << std::ifstream(std::string(MACHINE_FOLDER "/") + name, std::ios::binary).rdbuf();
        return text.str();
    };
    const std::string expected = read("expansions.txt");
    if (expected.empty())
        GTEST_SKIP() << "scripts/test --windows has not been here";
    std::string error;
    const auto described = wm::DescribedMachine::Parse(read("machine.json"), &error);
    ASSERT_NE(described, nullptr) << error;
    EXPECT_EQ(test::ExpansionsOf(*described), expected);
}

TEST(Described, ComplaintsNameThePlace) {
    const struct {
        const char* json;
        const char* error;
    } rows[] = {
        {"[]", "the description: an object is needed"},
        {R"({"os":10})", "os: there is no such key"},
        {R"({"arm":1})", "arm: true or false is needed"},
        {R"({"os_major_version":-1})", "os_major_version: a number from 0 to 4294967295 is needed"},
        {R"({"drives":{"c":"fixed"}})", "drives.c: a drive is one letter from A to Z"},
        {R"({"drives":{"C":"floppy"}})",
         "drives.C: one of fixed, removable, remote, cdrom is needed"},
        {R"({"folders":{"CSIDL_SYSTEM":"C:"}})",
         "folders.CSIDL_SYSTEM: there is no folder of this name"},
        {R"({"users":{}})", "users: an array is needed"},
        {R"({"users":[{"sid":"S"},{"account":"a"}]})", "users[1]: a user needs a sid"},
        {R"({"users":[{"sid":7}]})", "users[0].sid: a text is needed"},
        {R"({"users":[{"sid":"S","variables":{"a":1}}]})",
         "users[0].variables.a: a text is needed"},
        {R"({"users":[{"sid":"S","variables_are":"x"}]})",
         "users[0].variables_are: one of none, stored, session is needed"},
        {R"({"computer_name":"a\u0000b"})",
         "computer_name: the text is not Unicode, or holds a NUL"},
    };
    for (const auto& row : rows) {
        std::string error;
        EXPECT_EQ(wm::DescribedMachine::Parse(row.json, &error), nullptr) << row.json;
        EXPECT_EQ(error, row.error);
    }
    std::string error;
    EXPECT_EQ(wm::DescribedMachine::Parse("{", &error), nullptr);
    EXPECT_FALSE(error.empty());
}

TEST(Described, FoldersOfUsersMayBeStatedOnceForAll) {
    std::string error;
    const auto machine = wm::DescribedMachine::Parse(
        R"({"user_folders":{"appdata":"AppData\\Roaming"},
            "users":[{"sid":"S-1","profile":"C:\\Users\\a"},
                     {"sid":"S-2","profile":"C:\\Users\\b","folders":{"APPDATA":"N:\\b"}}]})",
        &error);
    ASSERT_NE(machine, nullptr) << error;
    EXPECT_EQ(Utf8Set(Expand(*machine, L"CSIDL_APPDATA\\x", false)),
              (std::set<std::string>{R"(C:\Users\a\AppData\Roaming\x)", R"(N:\b\x)"}));
    EXPECT_EQ(Utf8Set(Expand(*machine, L"CSIDL_PROFILE\\x", false)),
              (std::set<std::string>{R"(C:\Users\a\x)", R"(C:\Users\b\x)"}));
}

// The road of a query: the injected machine answers for its paths.
TEST(Described, QueriesSeeTheInjectedMachine) {
    WindowsMachine machine;
    wm::SetMachine(&machine);
    const auto conditions = [](const char* type, const char* path) {
        Schema::Event event;
        event.FromJson(
            web::json::value::parse(std::string(R"({"artifacts":{"target":{"object_type":")") +
                                    type + R"(","path":{"value":[")" + path + R"("]}}}})"));
        Schema::FilterMap fields;
        EXPECT_EQ(Schema::ExtractKeyFields(event, true, &MachinePaths(), fields), hr::ok);
        std::set<std::string> values;
        for (const auto& [value, op] : fields["target_path_name"])
            values.insert(value);
        return values;
    };
    EXPECT_EQ(conditions("file", R"(CSIDL_DRIVE_FIXED\\a*)"),
              (std::set<std::string>{R"(C:\\a.*)", R"(D:\\a.*)"}));
    EXPECT_EQ(conditions("reg_key", R"(HKCU\\x)"),
              (std::set<std::string>{R"(HKEY_USERS\S-1-5-21-1-2-3-1001\x)",
                                     R"(HKEY_USERS\S-1-5-21-1-2-3-1002\x)"}));
    EXPECT_EQ(conditions("directory", R"(%USERNAME%)"), (std::set<std::string>{"alice", "bob"}));
    machine.listResult = hr::fail;
    Schema::Event event;
    event.FromJson(web::json::value::parse(
        R"({"artifacts":{"target":{"object_type":"reg_key","path":{"value":["HKCU"]}}}})"));
    Schema::FilterMap fields;
    EXPECT_EQ(Schema::ExtractKeyFields(event, true, &MachinePaths(), fields), hr::fail);
    wm::SetMachine(nullptr);
}

}  // namespace
}  // namespace ZEL
