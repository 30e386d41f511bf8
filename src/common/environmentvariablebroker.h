#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "common/lock.h"
#include "common/machinedescription.h"

namespace ZEL {

// The environment variables of every user of a machine, also of those who are not logged on. Read
// once and never again: a user who is new, or a variable that changed, is seen by the next process.
// May be used by any thread.
class CEnvironmentVariableBroker {
public:
    // The one of the process, for the machine that paths are normalised for. The first call loads
    // it, which may take as long as reading all profiles does; other callers wait. A machine that
    // is injected after that call is not looked at.
    static std::shared_ptr<CEnvironmentVariableBroker> GetInstance();

    // Users that can't be read are left out, traced. `machine` must outlive the object, as it is
    // asked for the process's own variables at each lookup.
    explicit CEnvironmentVariableBroker(wm::IMachineDescription& machine);
    virtual ~CEnvironmentVariableBroker() = default;
    CEnvironmentVariableBroker(const CEnvironmentVariableBroker&) = delete;
    CEnvironmentVariableBroker& operator=(const CEnvironmentVariableBroker&) = delete;

    // The user's variable, else the process's own of that name. 1 when there is one, else 0. Names
    // and SIDs are compared without case. `out` is unspecified for 0. A lookup that fails, as for
    // want of memory, gives 0 and is reported.
    int LookupUserVariable(const std::wstring& sid, const std::wstring& name, std::wstring& out)
        EXCLUDES(lock_);

    // As they were when the variables were read. For any thread without the lock.
    const std::vector<wm::MachineUser>& Users() const noexcept { return users_; }

private:
    void Load() REQUIRES(lock_);
    void Enter(const wm::MachineUser& user, const std::wstring& name, const std::wstring& value)
        REQUIRES(lock_);
    // What a logon would compute for a user who is not logged on. To be entered ahead of kept
    // values, which it hides.
    void SynthesiseUserVariables(const wm::MachineUser& user) REQUIRES(lock_);
    void SynthesiseProfileVariables(const wm::MachineUser& user) REQUIRES(lock_);

    wm::Lock lock_{wm::LockRank::variables};
    std::map<std::wstring, std::wstring> variables_ GUARDED_BY(lock_);  // by "SID|NAME"
    wm::IMachineDescription& machine_;
    std::vector<wm::MachineUser> users_;  // unchanged once the object is made
};

}  // namespace ZEL
