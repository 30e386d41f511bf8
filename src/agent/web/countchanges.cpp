#include "agent/web/countchanges.h"

#include <algorithm>
#include <filesystem>
#include <vector>

// A walk finds what the store has written. An answer holds as long as nothing is written that lies
// in its range: so each batch that is accepted leaves its range here, and an answer is asked of all
// batches that were not certainly written when its walk began. That errs to one side only: a batch
// that the walk did find may end the answer all the same.
//
// Enrichments are few and change events of any time, so their number alone is compared.

namespace zel {

namespace {

namespace fs = std::filesystem;

constexpr char separator = '\n';  // in no receive-time key

// A number that is another one for other texts, but for a small chance.
std::string Sum(std::vector<std::string> lines) {
    std::sort(lines.begin(), lines.end());
    std::string all;
    for (const std::string& line : lines)
        all.append(line).append(1, '\0');
    return std::to_string(std::hash<std::string>()(all)) + "." + std::to_string(all.size());
}

std::string StampOf(const fs::directory_entry& file) {
    std::error_code error;
    const auto size = file.file_size(error);
    const auto time = file.last_write_time(error).time_since_epoch().count();
    return std::to_string(size) + " " + std::to_string(time);
}

// Each line is a name, and for `deep` how what it names looks. A folder that can't be read counts
// as empty.
std::string StampOf(const std::string& directory, bool deep) {
    std::vector<std::string> lines;
    std::error_code error;
    for (fs::directory_iterator folder(directory, error), end; !error && folder != end;
         folder.increment(error)) {
        lines.push_back(folder->path().filename().string());
        std::error_code inner;
        if (!deep || !folder->is_directory(inner))
            continue;
        for (fs::directory_iterator file(folder->path(), inner); !inner && file != end;
             file.increment(inner))
            lines.push_back(file->path().string() + " " + StampOf(*file));
    }
    return Sum(std::move(lines));
}

}  // namespace

std::string FileChanges::Mark() {
    return StampOf(directory_, true);
}

ArrivalChanges::ArrivalChanges(ZEL::IEventStore7& store, std::string directory,
                               std::function<std::string()> settled, std::string accepted)
    : directory_(std::move(directory)),
      settled_(std::move(settled)),
      accepted_(std::move(accepted)) {
    if (Failed(store.QueryInterface(ZEL::iidWriteProgress, progress_.ReceiveVoid())))
        progress_.Reset();
}

void ArrivalChanges::OnAccepted(const std::string& lastReceiveKey, const EventSpan& range) {
    constexpr std::size_t mostArrivals = 20000, mostJoined = 64;
    const std::lock_guard hold(mutex_);
    // Batches that came one behind the other mostly lie together; few are enough to tell.
    if (arrivals_.size() > mostArrivals - mostJoined && !arrivals_.empty()) {
        Arrival& former = arrivals_.back();
        if (former.range.since <= range.until && range.since <= former.range.until) {
            former.last = lastReceiveKey;
            former.range = {std::min(former.range.since, range.since),
                            std::max(former.range.until, range.until)};
            return;
        }
    }
    arrivals_.push_back({lastReceiveKey, range});
    if (arrivals_.size() > mostArrivals) {
        forgotten_ = arrivals_.front().last;
        arrivals_.pop_front();
    }
}

std::string ArrivalChanges::Folders() const {
    return StampOf(directory_, false);
}

std::uint64_t ArrivalChanges::Enrichments() const {
    return progress_ ? progress_->SettledEnrichments() : 0;
}

std::string ArrivalChanges::Mark() {
    const std::string settled = settled_();
    if (!progress_ || settled < accepted_)
        return "";
    return settled + separator + std::to_string(Enrichments()) + separator + Folders();
}

bool ArrivalChanges::Holds(const std::string& mark, const EventSpan& range, bool readsEnrichments) {
    const std::size_t first = mark.find(separator), second = mark.find(separator, first + 1);
    if (first == mark.npos || second == mark.npos || mark.substr(second + 1) != Folders())
        return false;
    const std::string settled = mark.substr(0, first);
    const std::string enrichments = mark.substr(first + 1, second - first - 1);
    if (readsEnrichments && enrichments != std::to_string(Enrichments()))
        return false;
    const std::lock_guard hold(mutex_);
    if (settled < forgotten_)
        return false;
    return std::none_of(arrivals_.begin(), arrivals_.end(), [&](const Arrival& arrival) {
        return arrival.last > settled && arrival.range.since <= range.until &&
               range.since <= arrival.range.until;
    });
}

}  // namespace zel
