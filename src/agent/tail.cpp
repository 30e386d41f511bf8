#include "agent/tail.h"

#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "agent/tailedfile.h"

// A file that grows, and what becomes of it.
//
// Renamed, and another made under its name: the descriptor goes on with the old one, which writers
// may still hold, until nothing has come for a while; the new one is read beside it. Copied and
// emptied: what had not been read yet stands in the copy, which is looked for beside the file and
// read to its end. Renamed twice between two looks: the name tells. After a restart the files that
// were being read are found by their number, else by how they begin, under the name itself or one
// that begins with it, as rotating gives them.
//
// A mark says of each file how far its lines are in the spool, and is written with the last of
// these; so a kill at any moment neither loses a line nor takes one twice.

namespace zel {

namespace {

constexpr auto restOfOld = std::chrono::seconds(60);  // of nothing new, until it counts as done

class Tail final : public WayIn {
public:
    Tail(AgentParts& parts, std::string path)
        : parts_(parts), path_(std::move(path)), prefix_("tail " + path_ + "\n") {}

    bool Step() override {
        if (!std::exchange(hasResumed_, true))
            Resume();
        // A mark that waits for room may be that of another file as well.
        if (!std::all_of(files_.begin(), files_.end(),
                         [](const auto& one) { return one->Commit(); }))
            return false;
        LookForNewer();
        bool hasMore = false;
        for (std::size_t i = 0; i < files_.size(); ++i) {
            if (files_[i]->WasEmptied())
                i += BeginAnew(i) ? 1 : 0;
            hasMore = files_[i]->Step() || hasMore;
        }
        DropOld();
        return hasMore;
    }

private:
    using Files = std::vector<std::unique_ptr<TailedFile>>;

    bool Has(const FileDescriptor& file) const {
        struct stat info {};
        return file.IsFile(&info) && std::any_of(files_.begin(), files_.end(),
                                                 [&](const auto& one) { return one->Is(info); });
    }

    std::unique_ptr<TailedFile> Make(FileDescriptor file, const TailMark& mark) {
        return std::make_unique<TailedFile>(parts_, prefix_, path_, std::move(file), mark);
    }

    // Files beside this one whose names begin with its name, the newest first.
    std::vector<std::string> Siblings() const {
        const std::size_t slash = path_.rfind('/');
        const std::string folder = path_.substr(0, slash + 1), name = path_.substr(slash + 1);
        std::vector<std::pair<std::int64_t, std::string>> found;
        DIR* const directory = ::opendir(folder.c_str());
        while (const dirent* const entry = directory != nullptr ? ::readdir(directory) : nullptr) {
            const std::string_view one = entry->d_name;
            struct stat info {};
            if (one.starts_with(name) && one != name &&
                ::stat((folder + std::string(one)).c_str(), &info) == 0 && S_ISREG(info.st_mode))
                found.emplace_back(WrittenAt(info), folder + std::string(one));
        }
        if (directory != nullptr)
            ::closedir(directory);
        std::sort(found.rbegin(), found.rend());
        std::vector<std::string> paths;
        paths.reserve(found.size());
        for (auto& [time, path] : found)
            paths.push_back(std::move(path));
        return paths;
    }

    // Files that had the name in between, and nobody saw it. Only those whose names say that they
    // were rotated: others that begin alike may be anything. A copy of the file that has the name
    // is found when that is emptied.
    void PickUp(const std::vector<std::string>& siblings, std::int64_t since) {
        const FileDescriptor named = OpenToTail(path_);
        for (auto path = siblings.rbegin(); path != siblings.rend(); ++path) {
            const std::string_view end = std::string_view(*path).substr(path_.size());
            struct stat info {};
            FileDescriptor file = OpenToTail(*path);
            if (end.find_first_not_of("0123456789.-_") == end.npos && file.IsFile(&info) &&
                WrittenAt(info) >= since && !Has(file) && !BeginAlike(named, file))
                files_.push_back(Make(std::move(file), TailMark()));
        }
    }

    // The file that the mark was made for, or a copy of it.
    std::unique_ptr<TailedFile> Find(const TailMark& mark, const std::vector<std::string>& paths) {
        for (const bool isByNumber : {true, false})
            for (const std::string& path : paths) {
                FileDescriptor file = OpenToTail(path);
                struct stat info {};
                const bool isWanted = file.IsFile(&info) &&
                                      (isByNumber ? info.st_ino == mark.number : mark.offset > 0);
                if (isWanted && !Has(file) && mark.Fits(file))
                    return Make(std::move(file), mark);
            }
        return nullptr;
    }

    void Resume() {
        const std::vector<std::string> siblings = Siblings();
        std::vector<std::string> paths{path_};
        paths.insert(paths.end(), siblings.begin(), siblings.end());
        std::int64_t since = INT64_MAX;
        for (const SpoolMark& told : parts_.spool.Marks(prefix_)) {
            const auto mark = TailMark::Parse(told, prefix_);
            if (mark)
                since = since == INT64_MAX ? mark->writtenAt : std::max(since, mark->writtenAt);
            auto file = mark ? Find(*mark, paths) : nullptr;
            const bool isSame = file && file->Mark().number == mark->number;
            if (file)
                files_.push_back(std::move(file));
            else if (mark && mark->offset > 0)
                parts_.log.Say(path_ + ": the file that was read to byte " +
                               std::to_string(mark->offset) +
                               " is gone; what stood behind that was not taken");
            if (!isSame)
                Forget(told);
        }
        PickUp(siblings, since);
    }

    // A mark that no file has any more; a copy that was found has its own.
    void Forget(const SpoolMark& mark) {
        StreamPart part;
        part.delivery = std::make_shared<Delivery>();
        std::vector<SpoolMark> marks{{mark.name, ""}};
        for (const auto& file : files_)
            marks.push_back(file->Mark().Told(prefix_));
        PartSink sink(parts_, path_);
        sink.Put(std::move(part), std::move(marks));
        sink.Commit();
    }

    // The file of the name is the last.
    void LookForNewer() {
        struct stat info {};
        if (::stat(path_.c_str(), &info) != 0) {
            if (files_.empty() && !std::exchange(toldMissing_, true))
                parts_.log.Say(path_ + " is waited for: " + std::strerror(errno));
            return;
        }
        for (std::size_t i = 0; i < files_.size(); ++i)
            if (files_[i]->Is(info))
                return std::rotate(files_.begin() + static_cast<std::ptrdiff_t>(i),
                                   files_.begin() + static_cast<std::ptrdiff_t>(i) + 1,
                                   files_.end()),
                       void();
        FileDescriptor file = OpenToTail(path_);
        if (file.Get() < 0)
            return parts_.log.SaySeldom(path_ + " can't be followed: " +
                                        (errno == EINVAL ? "it is no file" : std::strerror(errno)));
        std::int64_t since = INT64_MAX;
        for (std::size_t i = 0; i < files_.size(); ++i)
            since = i == 0 ? files_[i]->WrittenAt() : std::max(since, files_[i]->WrittenAt());
        PickUp(Siblings(), since);
        files_.push_back(Make(std::move(file), TailMark()));
    }

    // Whether a copy stands ahead of it now.
    bool BeginAnew(std::size_t i) {
        auto copy = Find(files_[i]->Mark(), Siblings());
        files_[i]->BeginAnew(copy.get());
        if (!copy)
            return false;
        files_.insert(files_.begin() + static_cast<std::ptrdiff_t>(i), std::move(copy));
        return true;
    }

    void DropOld() {
        const auto isDone = [&](const std::unique_ptr<TailedFile>& file) {
            return file != files_.back() && file->Quiet() >= restOfOld && file->End();
        };
        files_.erase(std::remove_if(files_.begin(), files_.end(), isDone), files_.end());
    }

    AgentParts& parts_;
    const std::string path_;
    const std::string prefix_;
    Files files_;  // the oldest first
    bool hasResumed_ = false;
    bool toldMissing_ = false;
};

}  // namespace

std::unique_ptr<WayIn> MakeTail(AgentParts& parts, std::string path) {
    return std::make_unique<Tail>(parts, std::move(path));
}

}  // namespace zel
