#include "records/input/inputfiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "records/input/archive.h"
#include "records/input/unpack.h"

// A file is a chain of streams: a descriptor, in front of it what unpacks, in front of that an
// archive's files, each of which may be packed again. A read from a pipe may wait for ever, and the
// signal that ends the program may have gone to another thread: so each read is preceded by the
// caller's own wait.

namespace zel {

namespace {

// Files in packed archives are packed themselves now and then; more is a trap.
constexpr int deepest = 4;

class DescriptorStream final : public ByteStream {
public:
    DescriptorStream(int descriptor, const AwaitInput& await, std::uint64_t* count)
        : descriptor_(descriptor), await_(await), count_(*count) {}
    ~DescriptorStream() override {
        if (descriptor_ != STDIN_FILENO)
            ::close(descriptor_);
    }
    DescriptorStream(const DescriptorStream&) = delete;
    DescriptorStream& operator=(const DescriptorStream&) = delete;

    long Read(char* buffer, std::size_t size, std::string* error) override {
        if (!await_(descriptor_))
            return 0;
        const ssize_t got = ::read(descriptor_, buffer, size);
        if (got < 0 && errno == EINTR)
            return 0;
        if (got < 0)
            *error = std::strerror(errno);
        count_ += got > 0 ? static_cast<std::uint64_t>(got) : 0;
        return got;
    }

private:
    const int descriptor_;
    const AwaitInput& await_;
    std::uint64_t& count_;
};

// What is text shows early: a pipe that has given one line must not be waited for.
bool IsTextSoFar(const std::string& head) {
    return head.starts_with('{') || head.starts_with('<') || head.find('\n') != head.npos;
}

std::uint64_t SizeOf(int descriptor) {
    struct stat status {};
    const bool isFile = ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
    return isFile ? static_cast<std::uint64_t>(status.st_size) : 0;
}

}  // namespace

InputEnd InputFiles::Read(const std::string& file, const Take& take, std::string* error) {
    bytesRead_ = bytesInAll_ = 0;
    const int descriptor = file == "-" ? STDIN_FILENO : ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        *error = std::strerror(errno);
        return InputEnd::unreadable;
    }
    bytesInAll_ = SizeOf(descriptor);
    DescriptorStream stream(descriptor, await_, &bytesRead_);
    return ReadStream(stream, file == "-" ? "(stdin)" : file, 0, take, error);
}

InputEnd InputFiles::ReadStream(ByteStream& stream, const std::string& name, int depth,
                                const Take& take, std::string* error) {
    PeekStream bytes(stream);
    const std::string head = bytes.Peek(archiveHeadSize, IsTextSoFar);
    if (depth < deepest) {
        if (const auto unpacked = MakeUnpacker(head, bytes))
            return ReadStream(*unpacked, name, depth + 1, take, error);
        if (IsArchive(head)) {
            const auto takeEntry = [&](const ArchiveEntry& entry, ByteStream& file) {
                std::string problem;
                const InputEnd end =
                    ReadStream(file, name + ":" + entry.name, depth + 1, take, &problem);
                if (end == InputEnd::unreadable)
                    *error = entry.name + ": " + problem;
                return end != InputEnd::stopped;
            };
            const ArchiveEnd end = ReadArchive(bytes, takeEntry, error);
            if (end == ArchiveEnd::stopped)
                return InputEnd::stopped;
            return error->empty() ? InputEnd::all : InputEnd::unreadable;
        }
    }
    return take(name, bytes) ? InputEnd::all : InputEnd::stopped;
}

}  // namespace zel
