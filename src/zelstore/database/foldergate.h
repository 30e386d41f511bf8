#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <string>

#include "common/lock.h"
#include "common/result.h"
#include "zelstore/database/layout.h"

namespace ZEL {

class LevelDbInstance;

// Keeps opening and closing of one folder apart within the process, whichever objects do it:
// whoever opens, closes or removes a folder holds its gate's lock meanwhile, so that an opener
// waits for a close in progress, with the removal that may belong to it, and never shares a folder.
//
// One gate a folder, shared by all that have to do with it and gone with the last of them. Folders
// are told apart by the text of their paths.
class FolderGate {
public:
    // The gate of that folder, made when there is none. Hold it for as long as the folder is in
    // use.
    static std::shared_ptr<FolderGate> For(const std::wstring& folder);

    explicit FolderGate(std::wstring folder) : folder_(std::move(folder)) {}
    ~FolderGate();
    FolderGate(const FolderGate&) = delete;
    FolderGate& operator=(const FolderGate&) = delete;

    wm::Lock lock{wm::LockRank::folderGate};

    // The folder is open from here on, for as long as `user` lives and then until SetClosed.
    void SetOpen(std::weak_ptr<LevelDbInstance> user) REQUIRES(lock);
    void SetClosed() REQUIRES(lock);
    // Between the moment when the last user lets go and the end of the closing that follows, the
    // folder has no user but is open: waits for the end. The lock is left meanwhile.
    void AwaitClosed() REQUIRES(lock);

    // Whether the library may be asked to open the folder; nothing is changed on disk.
    //   0x8007045d  a user in this process has the folder open
    //   0x80004005  it is a symbolic link, or holds no database and none may be made: that was not
    //               asked for, or somebody might still save what stands in tables and logs; or
    //               something else stands in the place of its CURRENT
    //   0x80070004  this process has no file handles left for a database
    //   0x80070005  a log can't be read, and the library would drop it with its records
    //   0x80070020  another process has it open
    //   0x80070070  a database would have to be made and there is no room
    HRESULT CheckOpen(IfMissing ifMissing) const REQUIRES(lock);
    // The same for a reader that takes no lock, whom another process does not hinder.
    HRESULT CheckRead() const REQUIRES(lock);
    // Whether another process has the folder open; this one must not.
    bool IsOpenElsewhere() const;
    // Waits a little for another process to let the folder go, unless `isToEnd` says that there is
    // no time. Call it under no lock.
    void AwaitOtherProcess(const std::function<bool()>& isToEnd) EXCLUDES(lock);

    // Removes the folder unless somebody uses it. Failures are only traced: the folder then comes
    // back as a database at the next start, or goes then when its removal had begun.
    void Remove() const noexcept REQUIRES(lock);

private:
    const std::wstring folder_;
    // Tells apart a folder whose closing has still to come from one that is closed: the pointer is
    // empty in both.
    bool isOpen_ GUARDED_BY(lock) = false;
    std::weak_ptr<LevelDbInstance> user_ GUARDED_BY(lock);
    std::condition_variable_any closed_;

    HRESULT CheckFolder(IfMissing ifMissing) const REQUIRES(lock);
    // hr::ok also where there is no folder any more.
    HRESULT MoveAndRemove() const;
};

}  // namespace ZEL
