#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "common/result.h"

namespace wm {

// Where a user's variables come from, and so what has to be worked out beside them.
//
// Their expansion depends on it: a variable that a logon computes, such as those of the user's own
// folders, has to be made up from what is known of the account unless it is there already.
enum class VariableSource {
    none,     // they can't be read: only the process's own are known
    stored,   // as kept for the next logon; what a logon would compute is not among them
    session,  // of a user who is logged on: complete
};

// One account with a profile on the machine.
//
// Fields that the machine can't tell are empty.
struct MachineUser {
    std::wstring sid;  // as text, S-1-...
    std::wstring account;
    std::wstring domain;
    std::wstring profileFolder;
    VariableSource source = VariableSource::none;
    std::vector<std::pair<std::wstring, std::wstring>>
        variables;  // of equal names the first counts
};

// Kinds of drive, by the numbers that Windows gives them.
//
// A letter without a drive is answered with `none` and is no error.
namespace driveType {
inline constexpr std::uint32_t none = 1;  // no such drive
inline constexpr std::uint32_t removable = 2;
inline constexpr std::uint32_t fixed = 3;
inline constexpr std::uint32_t remote = 4;
inline constexpr std::uint32_t cdrom = 5;
}  // namespace driveType

// Well-known folders go by the numbers of the Windows shell (CSIDL), with these flags beside them.
//
// A caller combines a number with flags; a description that knows folders by number alone masks the
// flags away with `number`.
namespace folderFlag {
inline constexpr int number = 0x00FF;  // the part without flags
inline constexpr int dontUnexpand = 0x2000;
inline constexpr int dontVerify = 0x4000;  // the folder need not exist
}  // namespace folderFlag

// What path normalisation asks about a machine: usually the one it runs on, or a description of
// another whose store is being read. Answers are texts of that machine, so paths have its
// separators. May be called by any thread. What the machine can't tell is answered with false and
// leaves the output unspecified.
class IMachineDescription {
public:
    virtual ~IMachineDescription() = default;

    virtual std::uint32_t OsMajorVersion() = 0;
    virtual bool IsArm() = 0;

    // SID texts of the accounts with a profile, without those of services. Asked for each path.
    virtual ZEL::HRESULT ProfileSids(std::vector<std::wstring>& sids) = 0;
    // The same accounts with all that is known of them. Slow: it may load each one's settings. Who
    // asks keeps the answer.
    virtual ZEL::HRESULT LoadUsers(std::vector<MachineUser>& users) = 0;

    // A folder of the machine, or of the calling account where each account has its own.
    virtual bool Folder(int folder, std::wstring& path) = 0;
    // A folder of one user, where the machine knows it for others than the calling account.
    virtual bool UserFolder(const MachineUser& user, int folder, std::wstring& path) = 0;

    // `letter` is A to Z.
    virtual std::uint32_t DriveType(wchar_t letter) = 0;
    virtual bool SystemDirectory(std::wstring& path) = 0;
    // Of the process's own environment. Names are compared without case.
    virtual bool ProcessVariable(const std::wstring& name, std::wstring& value) = 0;
    virtual bool ComputerName(std::wstring& name) = 0;
};

}  // namespace wm
