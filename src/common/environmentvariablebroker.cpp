#include "common/environmentvariablebroker.h"

#include "common/errorreport.h"
#include "common/patterntext.h"
#include "common/thismachine.h"
#include "common/trace.h"
#include "common/userfolder.h"

// Paths of a query may name any user's variables, also of those who are not logged on. A user who
// is has them all, computed at logon. One who is not has only what is kept for the next logon; what
// that logon would compute is worked out here and entered first, so that it wins over kept values
// of the same name. A name that a user does not have is looked for in the process's own
// environment, which holds what all users share.
//
// Names and SIDs are folded into one upper-case key, since neither has a case that matters.

namespace ZEL {

namespace {

constexpr int unexpanded = wm::folderFlag::dontUnexpand;
constexpr int localAppData = 0x1C | unexpanded;
constexpr int roamingAppData = 0x1A | unexpanded;

// A variable that names a folder, by the shell's number for it.
struct FolderVariable {
    const wchar_t* name;
    int folder;
};
constexpr FolderVariable folderVariables[] = {
    {L"PUBLIC", 0x2E | unexpanded},
    {L"WINDIR", 0x24 | unexpanded},
    {L"ALLUSERSPROFILE", 0x23 | unexpanded},
    {L"PROGRAMDATA", 0x23 | unexpanded},
    {L"COMMONPROGRAMFILES", 0x2B | unexpanded},
    {L"COMMONPROGRAMFILES(X86)", 0x2C | unexpanded},
    {L"PROGRAMFILES", 0x26 | unexpanded},
    {L"PROGRAMFILES(X86)", 0x2A | unexpanded},
};
// What the process knows of them holds for every user.
constexpr const wchar_t* armVariables[] = {L"CommonProgramFiles(Arm)", L"ProgramFiles(Arm)"};

std::wstring MapKey(const std::wstring& sid, const std::wstring& name) {
    return UpperAscii(sid + L"|" + name);
}

}  // namespace

std::shared_ptr<CEnvironmentVariableBroker> CEnvironmentVariableBroker::GetInstance() {
    // Loading asks the machine and takes the broker's own lock.
    static wm::Lock lock(wm::LockRank::machine);
    static std::shared_ptr<CEnvironmentVariableBroker> instance;
    const wm::Hold hold(lock);
    if (!instance)
        instance = std::make_shared<CEnvironmentVariableBroker>(wm::Machine());
    return instance;
}

CEnvironmentVariableBroker::CEnvironmentVariableBroker(wm::IMachineDescription& machine)
    : machine_(machine) {
    const HRESULT result = machine_.LoadUsers(users_);
    if (Failed(result))
        wm::Trace(wm::message::usersNotRead, result);
    const wm::Hold hold(lock_);
    Load();
}

// A user whose variables can't be read gets none made up either: half of them would give paths that
// look right and are not.
void CEnvironmentVariableBroker::Load() {
    for (const wm::MachineUser& user : users_) {
        if (user.source == wm::VariableSource::none)
            continue;
        if (user.source == wm::VariableSource::stored)
            SynthesiseUserVariables(user);
        for (const auto& [name, value] : user.variables)
            Enter(user, name, value);
    }
}

// The first value of a name stays.
void CEnvironmentVariableBroker::Enter(const wm::MachineUser& user, const std::wstring& name,
                                       const std::wstring& value) {
    variables_.try_emplace(MapKey(user.sid, name), value);
}

void CEnvironmentVariableBroker::SynthesiseUserVariables(const wm::MachineUser& user) {
    SynthesiseProfileVariables(user);
    std::wstring value;
    if (machine_.ComputerName(value)) {
        Enter(user, L"LOGONSERVER", L"\\\\" + value);
        Enter(user, L"COMPUTERNAME", value);
    }
    // An account that can't be looked up has neither; what is kept for the logon then holds.
    if (!user.domain.empty())
        Enter(user, L"USERDOMAIN", user.domain);
    if (!user.account.empty())
        Enter(user, L"USERNAME", user.account);
    for (const FolderVariable& variable : folderVariables)
        if (machine_.Folder(variable.folder, value))
            Enter(user, variable.name, value);
    if (FolderOfUser(machine_, user, roamingAppData, value))
        Enter(user, L"APPDATA", value);
    for (const wchar_t* name : armVariables)
        if (machine_.IsArm() && machine_.ProcessVariable(name, value))
            Enter(user, name, value);
}

void CEnvironmentVariableBroker::SynthesiseProfileVariables(const wm::MachineUser& user) {
    constexpr std::size_t driveLength = 2;
    const std::wstring& profile = user.profileFolder;
    if (!profile.empty())
        Enter(user, L"USERPROFILE", profile);
    std::wstring local;
    if (FolderOfUser(machine_, user, localAppData, local)) {
        Enter(user, L"LOCALAPPDATA", local);
        Enter(user, L"TEMP", local + L"\\Temp");
        Enter(user, L"TMP", local + L"\\Temp");
    }
    // A profile on a share, say, has no drive to be told apart.
    if (profile.size() < driveLength || profile[1] != L':')
        return;
    Enter(user, L"HOMEDRIVE", profile.substr(0, driveLength));
    Enter(user, L"HOMEPATH", profile.substr(driveLength));
}

int CEnvironmentVariableBroker::LookupUserVariable(const std::wstring& sid,
                                                   const std::wstring& name, std::wstring& out) {
    // A lookup that fails leaves the name in the path as it stands, and is reported.
    try {
        const std::wstring key = MapKey(sid, name);
        const wm::Hold hold(lock_);
        const auto found = variables_.find(key);
        if (found == variables_.end())
            return machine_.ProcessVariable(name, out) ? 1 : 0;
        out = found->second;
        return 1;
    } catch (const std::exception& error) {
        wm::ErrorReport()
            .SetError(hr::unexpected, "common/environmentvariablebroker")
            .AddDetail("Exception", error.what())
            .Submit();
        return 0;
    }
}

}  // namespace ZEL
