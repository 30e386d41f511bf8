#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "common/machinedescription.h"

namespace wm {

// A machine as a JSON text describes it (docs/machine.md), so that a store that was copied from
// there can be queried as if there. Unchanging, so for any thread. What the text leaves out does
// not exist there: a question for it is answered with false or an empty list, never with this
// machine's own.
class DescribedMachine final : public IMachineDescription {
public:
    // Null when the text is no such description; `error` then tells where and why. The text is
    // UTF-8. A description with one mistake is refused whole, since a query for a half-read machine
    // would find nothing and not say why.
    static std::unique_ptr<DescribedMachine> Parse(std::string_view json, std::string* error);

    std::uint32_t OsMajorVersion() override { return osMajorVersion_; }
    bool IsArm() override { return isArm_; }
    // Both always succeed, and add to what the list holds.
    ZEL::HRESULT ProfileSids(std::vector<std::wstring>& sids) override;
    ZEL::HRESULT LoadUsers(std::vector<MachineUser>& users) override;
    // Flags beside the folder's number have no effect here: nothing is unexpanded, and nothing can
    // be verified.
    bool Folder(int folder, std::wstring& path) override;
    // The user's own folder of that number, else the one below the profile that all users share.
    bool UserFolder(const MachineUser& user, int folder, std::wstring& path) override;
    std::uint32_t DriveType(wchar_t letter) override;
    bool SystemDirectory(std::wstring& path) override;
    // Those that the description gives the machine, not this process's own.
    bool ProcessVariable(const std::wstring& name, std::wstring& value) override;
    bool ComputerName(std::wstring& name) override;

private:
    friend class MachineReader;
    DescribedMachine() = default;

    using Folders = std::map<int, std::wstring>;  // by number, without flags
    struct User {
        MachineUser facts;
        Folders folders;  // in full
    };

    // The version decides which redirections apply; a description without one is taken for a
    // current machine.
    std::uint32_t osMajorVersion_ = 10;
    bool isArm_ = false;
    std::wstring computerName_;
    std::wstring systemDirectory_;
    Folders folders_;
    Folders userFolders_;  // below each profile, where the user has no folder of that number
    std::map<wchar_t, std::uint32_t> drives_;
    std::map<std::wstring, std::wstring> variables_;  // by name in upper case
    std::vector<User> users_;
};

}  // namespace wm
