#include "agent/tailedfile.h"

#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <sstream>

namespace zel {

namespace {

constexpr std::uint64_t knownBytes = 1024;           // at either end, by which a file is known
constexpr auto eventTime = std::chrono::seconds(2);  // that lines of one event may lie apart

// As far as the file goes.
std::string ReadAt(const FileDescriptor& file, std::uint64_t offset, std::size_t size) {
    std::string bytes(size, '\0');
    const ssize_t got = ::pread(file.Get(), bytes.data(), bytes.size(), static_cast<off_t>(offset));
    bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    return bytes;
}

std::uint64_t SumOf(const FileDescriptor& file, std::uint64_t offset) {
    const auto size = static_cast<std::size_t>(std::min(offset, knownBytes));
    const std::string bytes = ReadAt(file, 0, size) + ReadAt(file, offset - size, size);
    return ::crc32_z(0, reinterpret_cast<const Bytef*>(bytes.data()), bytes.size());
}

}  // namespace

FileDescriptor::~FileDescriptor() {
    if (descriptor_ >= 0)
        ::close(descriptor_);
}

bool FileDescriptor::IsFile(struct stat* info) const {
    return descriptor_ >= 0 && ::fstat(descriptor_, info) == 0 && S_ISREG(info->st_mode);
}

std::int64_t WrittenAt(const struct stat& info) noexcept {
    return static_cast<std::int64_t>(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec;
}

bool BeginAlike(const FileDescriptor& first, const FileDescriptor& second) {
    const std::string head = ReadAt(first, 0, knownBytes);
    return !head.empty() && ReadAt(second, 0, head.size()) == head;
}

// A pipe would wait for its writer.
FileDescriptor OpenToTail(const std::string& path) {
    FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat info {};
    if (file.Get() < 0 || file.IsFile(&info))
        return file;
    errno = EINVAL;
    return FileDescriptor();
}

std::optional<TailMark> TailMark::Parse(const SpoolMark& mark, const std::string& prefix) {
    TailMark parsed;
    std::istringstream text(mark.name.substr(std::min(prefix.size(), mark.name.size())) + " " +
                            mark.value);
    text >> parsed.number >> parsed.offset >> parsed.sum >> parsed.writtenAt;
    return text ? std::optional(parsed) : std::nullopt;
}

SpoolMark TailMark::Told(const std::string& prefix) const {
    return {prefix + std::to_string(number),
            std::to_string(offset) + " " + std::to_string(sum) + " " + std::to_string(writtenAt)};
}

void TailMark::MoveTo(std::uint64_t place, const FileDescriptor& file) {
    offset = place;
    sum = SumOf(file, offset);
    struct stat info {};
    writtenAt = file.IsFile(&info) ? WrittenAt(info) : 0;
}

bool TailMark::Fits(const FileDescriptor& file) const {
    struct stat info {};
    return file.IsFile(&info) && static_cast<std::uint64_t>(info.st_size) >= offset &&
           (offset == 0 || SumOf(file, offset) == sum);
}

TailedFile::TailedFile(AgentParts& parts, std::string prefix, const std::string& name,
                       FileDescriptor file, const TailMark& mark)
    : parts_(parts),
      prefix_(std::move(prefix)),
      file_(std::move(file)),
      mark_(mark),
      readTo_(mark.offset),
      sink_(parts, name) {
    struct stat info {};
    if (file_.IsFile(&info)) {
        device_ = info.st_dev;
        mark_.number = info.st_ino;
    }
    stream_ = std::make_unique<LineStream>(parts_.store, parts_.config, "", mark.offset);
}

bool TailedFile::Is(const struct stat& info) const noexcept {
    return info.st_dev == device_ && info.st_ino == mark_.number;
}

std::int64_t TailedFile::WrittenAt() const {
    struct stat info {};
    return file_.IsFile(&info) ? zel::WrittenAt(info) : 0;
}

std::chrono::seconds TailedFile::Quiet() const {
    return std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - grewAt_);
}

std::uint64_t TailedFile::ReadPart() {
    std::uint64_t whole = 0;
    while (whole < partBytes) {
        const std::string bytes = ReadAt(file_, readTo_, readBytes);
        if (bytes.empty())
            break;
        stream_->Feed(bytes);
        readTo_ += bytes.size();
        whole += bytes.size();
    }
    return whole;
}

void TailedFile::TakePart(std::vector<SpoolMark> marks) {
    StreamPart part = stream_->TakePart();
    if (marks.empty()) {
        mark_.MoveTo(part.offset, file_);
        marks.push_back(mark_.Told(prefix_));
    }
    sink_.Put(std::move(part), std::move(marks));
}

bool TailedFile::Step() {
    if (!sink_.Commit() || isEnding_)
        return false;
    const std::uint64_t read = ReadPart();
    if (read > 0)
        grewAt_ = Clock::now();
    else if (stream_->HoldsEvents() && Quiet() >= eventTime)
        stream_->Settle();
    else
        return false;
    TakePart({});
    return sink_.Commit() && read >= partBytes;
}

// What was read is looked at when the file was changed, since the file may have grown beyond that
// after it was emptied.
bool TailedFile::WasEmptied() {
    struct stat info {};
    if (!sink_.Commit() || !file_.IsFile(&info))
        return false;
    const bool isChanged = zel::WrittenAt(info) != std::exchange(seenAt_, zel::WrittenAt(info));
    return static_cast<std::uint64_t>(info.st_size) < readTo_ || (isChanged && !mark_.Fits(file_));
}

void TailedFile::BeginAnew(const TailedFile* copy) {
    TailMark unread(mark_.number);
    unread.MoveTo(0, file_);
    std::vector<SpoolMark> marks{unread.Told(prefix_)};
    if (copy != nullptr)
        marks.push_back(copy->mark_.Told(prefix_));
    else
        stream_->End();
    TakePart(std::move(marks));
    readTo_ = 0;
    mark_ = unread;
    stream_ = std::make_unique<LineStream>(parts_.store, parts_.config);
    sink_.Commit();
}

bool TailedFile::End() {
    if (!isEnding_ && sink_.Commit()) {
        isEnding_ = true;
        stream_->End();
        TakePart({{prefix_ + std::to_string(mark_.number), ""}});
    }
    return sink_.Commit();
}

}  // namespace zel
