#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "common/environmentvariablebroker.h"
#include "common/linux/userdirectories.h"
#include "common/textbridge.h"
#include "common/thismachine.h"

namespace wm {
namespace {

TEST(LinuxMachine, AnswersWhereLinuxHasACounterpart) {
    IMachineDescription& machine = ThisMachine();
    EXPECT_EQ(machine.OsMajorVersion(), 0u);
    EXPECT_FALSE(machine.IsArm());
    EXPECT_EQ(machine.DriveType(L'C'), driveType::none);
    std::wstring text;
    EXPECT_FALSE(machine.SystemDirectory(text));
    EXPECT_FALSE(machine.Folder(0x24, text)) << "there is no folder of Windows";
    EXPECT_TRUE(machine.Folder(0x14 | folderFlag::dontVerify, text));
    EXPECT_EQ(text, L"/usr/share/fonts");
    EXPECT_TRUE(machine.ComputerName(text));

    std::vector<std::wstring> sids;
    std::vector<MachineUser> users;
    ASSERT_EQ(machine.ProfileSids(sids), ZEL::hr::ok);
    ASSERT_EQ(machine.LoadUsers(users), ZEL::hr::ok);
    ASSERT_EQ(sids.size(), users.size());
    for (std::size_t i = 0; i < users.size(); ++i) {
        EXPECT_EQ(users[i].sid, sids[i]);
        EXPECT_TRUE(users[i].sid.starts_with(L"S-1-22-1-"));
    }
}

TEST(LinuxMachine, VariableNamesMatchExactlyFirst) {
    ASSERT_EQ(::setenv("ZEL_Case", "mixed", 1), 0);
    std::wstring value;
    EXPECT_TRUE(ThisMachine().ProcessVariable(L"zel_case", value));
    EXPECT_EQ(value, L"mixed");
    ASSERT_EQ(::setenv("zel_case", "exact", 1), 0);
    EXPECT_TRUE(ThisMachine().ProcessVariable(L"zel_case", value));
    EXPECT_EQ(value, L"exact");
    EXPECT_FALSE(ThisMachine().ProcessVariable(L"ZEL_NONE", value));
}

TEST(LinuxMachine, UsersNameTheirOwnDirectories) {
    const std::filesystem::path home =
        testing::TempDir() + "zel-home-" + std::to_string(::getpid());
    std::filesystem::create_directories(home / ".config");
    std::ofstream(home / ".config/user-dirs.dirs")
        << "# a comment\nXDG_MUSIC_DIR=\"$HOME/Klang\"\nXDG_VIDEOS_DIR=\"/films\"\n"
        << "XDG_DESKTOP_DIR=\"relative\"\nXDG_PICTURES_DIR=\"\n";
    const std::pair<int, std::string> rows[] = {
        {0x0D, home / "Klang"},    {0x0E, "/films"},         {0x10, home / "Desktop"},
        {0x27, home / "Pictures"}, {0x1A, home / ".config"}, {0x28, home},
    };
    std::string path;
    for (const auto& [folder, expected] : rows) {
        EXPECT_TRUE(FindUserDirectory(home, folder, &path));
        EXPECT_EQ(path, expected);
    }
    // The file is the user's to choose; nothing that holds up its reader is read.
    const std::filesystem::path file = home / ".config/user-dirs.dirs";
    std::filesystem::remove(file);
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    EXPECT_TRUE(FindUserDirectory(home, 0x0D, &path));
    EXPECT_EQ(path, home / "Music");
    std::filesystem::remove(file);
    std::filesystem::create_symlink("/dev/zero", file);
    EXPECT_TRUE(FindUserDirectory(home, 0x0D, &path));
    EXPECT_EQ(path, home / "Music");
    EXPECT_FALSE(FindUserDirectory(home, 0x24, &path));
    EXPECT_FALSE(FindUserDirectory("", 0x28, &path));
    std::filesystem::remove_all(home);
}

}  // namespace
}  // namespace wm
