#include "zelstore/database/foldermemory.h"

#include <algorithm>
#include <utility>

#include "common/boundary.h"

// When facts hold. They are of the rows of one snapshot, and rows come into a folder through its
// log alone. So they hold as long as no log has rows in it and nobody else has opened the folder:
// each opening writes a new manifest and names it in CURRENT.
//
//   opening    the files are as they were at the last closing, or all is forgotten
//   open       a write of this process makes the closing forget
//   closing    CURRENT is still the one that this process's opening wrote, and all logs are empty;
//              the files are noted, with sizes and times
//   closed     any file that is not as it was noted makes it forget
//
// What LevelDB does to the tables while this process has them open changes no rows.

namespace ZEL {

namespace {

bool IsLogWithRows(const wm::FileState& file) {
    return file.name.ends_with(".log") && file.bytes != 0;
}

}  // namespace

std::shared_ptr<const FolderFacts> FolderMemory::Recall() {
    const wm::Hold hold(lock_);
    if (isOpen_ || !facts_)
        return nullptr;
    if (!IsAsItWasLocked())
        facts_.reset();
    return facts_;
}

bool FolderMemory::IsAsItWasLocked() {
    std::vector<wm::FileState> files;
    return Succeeded(wm::ListFileStates(folder_, files)) && files == files_;
}

void FolderMemory::BeforeOpen() {
    const wm::Hold hold(lock_);
    if (facts_ && !IsAsItWasLocked())
        facts_.reset();
    isOpen_ = true;
    isWritten_.store(false, std::memory_order_relaxed);
}

void FolderMemory::AfterOpen() {
    const wm::Hold hold(lock_);
    if (facts_ && !HasItsTablesLocked())
        facts_.reset();
}

// Rows of another process stand in a table by now, also those that it left in a log, since the
// opening has read that. Its other files change with each opening.
bool FolderMemory::HasItsTablesLocked() {
    std::vector<wm::FileState> files;
    if (Failed(wm::ListFileStates(folder_, files)))
        return false;
    const auto dropOthers = [](std::vector<wm::FileState> all) {
        std::erase_if(all, [](const wm::FileState& file) { return !file.name.ends_with(".ldb"); });
        return all;
    };
    return dropOthers(std::move(files)) == dropOthers(files_);
}

void FolderMemory::Forget() {
    const wm::Hold hold(lock_);
    isOpen_ = false;
    facts_.reset();
}

bool FolderMemory::WantsFacts() {
    const wm::Hold hold(lock_);
    return isOpen_ && !facts_ && !isWritten_.load(std::memory_order_relaxed);
}

void FolderMemory::Learn(std::shared_ptr<const FolderFacts> facts) {
    const wm::Hold hold(lock_);
    if (isOpen_ && !isWritten_.load(std::memory_order_relaxed))
        facts_ = std::move(facts);
}

std::string FolderMemory::ReadCurrent() const {
    std::string text;
    return Succeeded(wm::ReadWholeFile(wm::JoinPath(folder_, L"CURRENT"), &text)) ? text : "";
}

void FolderMemory::BeforeClose() noexcept {
    const wm::Hold hold(lock_);
    const bool holds = facts_ && !isWritten_.load(std::memory_order_relaxed) &&
                       Succeeded(AtBoundary([this]() NO_THREAD_SAFETY_ANALYSIS {
                           current_ = ReadCurrent();
                           return hr::ok;
                       }));
    if (!holds)
        facts_.reset();
}

void FolderMemory::AfterClose() noexcept {
    const wm::Hold hold(lock_);
    isOpen_ = false;
    if (!facts_)
        return;
    const HRESULT result = AtBoundary([this]() NO_THREAD_SAFETY_ANALYSIS {
        const HRESULT listed = wm::ListFileStates(folder_, files_);
        const bool holds = std::none_of(files_.begin(), files_.end(), IsLogWithRows) &&
                           !current_.empty() && current_ == ReadCurrent();
        return Failed(listed) || holds ? listed : hr::fail;
    });
    if (Failed(result))
        facts_.reset();
}

}  // namespace ZEL
