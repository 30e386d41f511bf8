#include "zel/results/spillfile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

// Each text stands behind its length, 8 bytes in this machine's order: nobody else reads the file.
// Events may be secret, so the file has no name, and its owner alone could read it.

namespace zel {

namespace {

constexpr std::size_t bufferSize = std::size_t{1} << 16;  // bytes, of the writer and each reader

std::string Folder() {
    const char* const given = std::getenv("TMPDIR");
    return given != nullptr && *given != '\0' ? given : "/tmp";
}

}  // namespace

SpillFile::~SpillFile() {
    if (descriptor_ >= 0)
        ::close(descriptor_);
}

bool SpillFile::Fail(const char* what) {
    problem_ = Folder() + ": " + what + ": " + std::strerror(errno);
    return false;
}

// Some volumes know no files without a name; there it loses the name at once.
bool SpillFile::Open() {
    const std::string folder = Folder();
    descriptor_ = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (descriptor_ < 0) {
        std::string name = folder + "/zel-XXXXXX";
        descriptor_ = ::mkostemp(name.data(), O_CLOEXEC);
        if (descriptor_ >= 0)
            ::unlink(name.c_str());
    }
    return descriptor_ >= 0 || Fail("no temporary file can be made");
}

bool SpillFile::Flush() {
    if (descriptor_ < 0 && !Open())
        return false;
    std::string_view left = buffer_;
    while (!left.empty()) {
        const ssize_t written = ::write(descriptor_, left.data(), left.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return Fail("a temporary file can't be written");
        left.remove_prefix(static_cast<std::size_t>(written));
    }
    end_ += buffer_.size();
    buffer_.clear();
    return true;
}

bool SpillFile::Append(std::string_view text) {
    const std::uint64_t size = text.size();
    char front[sizeof(size)];
    std::memcpy(front, &size, sizeof(size));
    buffer_.append(front, sizeof(front)).append(text);
    return buffer_.size() < bufferSize || Flush();
}

// Makes so many bytes stand in the buffer behind what was used.
bool SpillFile::Reader::Fill(std::size_t bytes) {
    buffer_.erase(0, used_);
    used_ = 0;
    while (buffer_.size() < bytes) {
        const std::size_t had = buffer_.size();
        const std::uint64_t wanted = std::max(bytes - had, bufferSize);
        buffer_.resize(had + static_cast<std::size_t>(std::min(wanted, end_ - at_)));
        const ssize_t got = ::pread(file_->descriptor_, buffer_.data() + had, buffer_.size() - had,
                                    static_cast<off_t>(at_));
        buffer_.resize(had + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return file_->Fail("a temporary file can't be read");
        at_ += static_cast<std::uint64_t>(got);
    }
    return true;
}

bool SpillFile::Reader::Next(std::string_view* text) {
    if (!file_->buffer_.empty() && !file_->Flush())
        return false;
    std::uint64_t size = 0;
    if (used_ == buffer_.size() && at_ == end_)
        return false;
    if (buffer_.size() - used_ < sizeof(size) && !Fill(sizeof(size)))
        return false;
    std::memcpy(&size, buffer_.data() + used_, sizeof(size));
    const std::size_t whole = sizeof(size) + static_cast<std::size_t>(size);
    if (buffer_.size() - used_ < whole && !Fill(whole))
        return false;
    *text = std::string_view(buffer_).substr(used_ + sizeof(size), static_cast<std::size_t>(size));
    used_ += whole;
    return true;
}

}  // namespace zel
