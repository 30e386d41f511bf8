#include "agent/diskwatch.h"

#include <algorithm>
#include <filesystem>

#include "common/hostservices.h"
#include "common/textbridge.h"
#include "connection/resultwords.h"
#include "connection/storefolders.h"

// Two looks. Free space, each second: below the threshold nothing more is accepted, and again once
// there is room by a margin, so that it does not flutter. The store's size, at times: beyond the
// limit the store deletes its oldest folders; what went is told, and the ledger moves their records
// from stored to purged.
//
// Sizes are taken by a walk of this file's own: the listing of the connection asks each folder's
// lock, and to close a lock's file would give up the lock of this very process.

namespace zel {

namespace fs = std::filesystem;

namespace {

constexpr std::uint64_t megabyte = 0x100000;

bool FreeBytes(const std::string& directory, std::uint64_t* bytes) {
    std::wstring wide;
    return wm::ToWide(directory, wide) && Succeeded(wm::FreeSpace().AvailableBytes(wide, bytes));
}

// Folders are named by the day whose records they were begun for.
std::string DayOf(const std::string& folder) {
    const bool isDay = folder.size() >= 8 && folder.find_first_not_of("0123456789") >= 8;
    const std::string day = isDay ? folder : wm::FormatUtc(wm::Clock().UtcNow());
    return isDay ? day.substr(0, 4) + "-" + day.substr(4, 2) + "-" + day.substr(6, 2)
                 : day.substr(0, 10);
}

}  // namespace

DiskWatch::DiskWatch(const LiveConfig& config, StoreSession& store, Spool& spool,
                     std::mutex& purging, Admission& admission, Notices& notices, AgentLog& log,
                     DiskSight& sight)
    : config_(config),
      store_(store),
      spool_(spool),
      purging_(purging),
      admission_(admission),
      notices_(notices),
      log_(log),
      sight_(sight) {}

ZEL::HRESULT DiskWatch::PurgeTo(std::uint32_t megabytes) {
    const std::lock_guard hold(mutex_);
    return Purge(Measure(), megabytes);
}

void DiskWatch::LookAtSizeSoon() {
    const std::lock_guard hold(mutex_);
    nextSize_ = 0;
}

void DiskWatch::Look() {
    const std::lock_guard hold(mutex_);
    LookAtVolumes();
    const std::uint64_t now = wm::Clock().TickCount64();
    if (now < nextSize_)
        return;
    LookAtSize();
    nextSize_ = now + config_->storePurgeEvery * 1000;
}

// What can't be measured is taken for room, as the store does.
void DiskWatch::LookAtVolumes() {
    const LiveConfig::Snapshot config = config_.Now();
    std::uint64_t free = UINT64_MAX;
    for (const std::string* const path : {&config->storePath, &config->spoolPath}) {
        std::uint64_t bytes = 0;
        if (FreeBytes(*path, &bytes))
            free = std::min(free, bytes);
    }
    sight_.freeBytes = free;
    const std::uint64_t resume =
        config->diskStopBelow + config->diskStopBelow / 100 * config->diskResumePercent;
    const bool wasStopped = isStopped_;
    isStopped_ = free < (wasStopped ? resume : config->diskStopBelow);
    if (isStopped_ == wasStopped)
        return;
    admission_.SetDiskRoom(!isStopped_);
    log_.Say(isStopped_ ? "the disk is full: nothing is accepted until " + ReadableBytes(resume) +
                              " are free"
                        : "there is room again: events are accepted");
    if (isStopped_)
        notices_.SetStopped("disk full");
    else
        notices_.SetRunning();
    nextSize_ = 0;  // a purge may make room
}

DiskWatch::Sizes DiskWatch::Measure() const {
    Sizes sizes;
    std::error_code error;
    constexpr auto passesOver = fs::directory_options::skip_permission_denied;
    for (fs::recursive_directory_iterator it(config_->storePath, passesOver, error), end;
         !error && it != end; it.increment(error)) {
        std::error_code vanished;
        if (it.depth() == 0 && it->is_directory(vanished))
            sizes.folders.push_back(it->path().filename().string());
        const std::uintmax_t bytes =
            it->is_regular_file(vanished) ? it->file_size(vanished) : std::uintmax_t{0};
        sizes.bytes += vanished ? 0 : bytes;
    }
    return sizes;
}

// Each is asked for: a walk may have ended at a folder that can't be entered, and what it has not
// seen would count as deleted for ever.
std::vector<std::string> DiskWatch::Gone(const std::vector<std::string>& folders) const {
    const fs::path store = config_->storePath;
    std::vector<std::string> gone;
    std::error_code ignored;
    for (const std::string& folder : folders)
        if (!folder.empty() && fs::is_directory(store, ignored) &&
            fs::symlink_status(store / folder, ignored).type() == fs::file_type::not_found)
            gone.push_back(folder);
    return gone;
}

void DiskWatch::LookAtSize() {
    const Sizes before = Measure();
    sight_.storeBytes = before.bytes;
    sight_.folders = before.folders.size();
    if (const auto gone = Gone(spool_.Folders()); !gone.empty()) {
        const std::lock_guard hold(purging_);
        NoteGone(gone, "not there any more");
    }
    const std::uint64_t most = config_->storeMaxSize;
    if (most != 0 && before.bytes > most)
        ZEL::IgnoreResult(
            Purge(before, static_cast<std::uint32_t>(std::max<std::uint64_t>(most / megabyte, 1))),
            "told, and tried again");
}

void DiskWatch::NoteGone(const std::vector<std::string>& folders, std::string_view why) {
    std::string problem, names;
    const std::uint64_t before = spool_.Account().purged;
    if (!spool_.Purged(folders, &problem))
        log_.Say(problem);
    for (const std::string& folder : folders)
        names.append(names.empty() ? "" : " ").append(folder);
    const auto [first, last] = std::minmax_element(folders.begin(), folders.end());
    notices_.Add("records purged", DayOf(*first) + "T00:00:00.000Z",
                 DayOf(*last) + "T23:59:59.999Z", spool_.Account().purged - before,
                 {{"folders", names}, {"why", std::string(why)}});
}

ZEL::HRESULT DiskWatch::Purge(const Sizes& before, std::uint32_t megabytes) {
    const std::lock_guard hold(purging_);
    const ZEL::HRESULT result = store_->Purge(megabytes);
    if (Failed(result))
        log_.SaySeldom("a purge failed: " + Describe(static_cast<std::int32_t>(result)));
    const Sizes after = Measure();
    const std::vector<std::string> gone = Gone(before.folders);
    sight_.storeBytes = after.bytes;
    sight_.folders = after.folders.size();
    const std::uint64_t limit = megabytes * megabyte;
    if (gone.empty()) {
        if (after.bytes > limit)
            log_.SaySeldom("the store is larger than its limit, and no folder may go");
        return result;
    }
    const std::uint64_t freed = before.bytes - std::min(before.bytes, after.bytes);
    log_.purgedFolders += gone.size();
    log_.purgedBytes += freed;
    NoteGone(gone, "purged");
    log_.Say("purged " + std::to_string(gone.size()) + " folder(s), " + ReadableBytes(freed) +
             ": the limit is " + ReadableBytes(limit));
    return result;
}

}  // namespace zel
