#include "zel/ingest/linereader.h"

#include <fcntl.h>
#include <lzma.h>
#include <poll.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "zel/terminal/messages.h"

// A file is a chain of sources: a descriptor, and in front of it, when the first bytes say so, what
// unpacks. On top lines are cut out of a buffer. Three things are less plain than they look:
//
// - A read from a pipe may wait for ever, and the signal that ends the program may have gone to
//   another thread. So each read first polls both the descriptor and the pipe that a signal fills.
// - Packed files may consist of several packed pieces, one behind the other, as tools that append
//   make them; the end of one is the end of the data only when nothing follows.
// - What was unpacked ahead of damage, or of the place where a file is cut off, is good and is
//   given first; only then comes the failure.

namespace zel {

namespace {

constexpr std::size_t bufferSize = 256U << 10;

// Owns its descriptor, but for standard input.
class PlainSource final : public LineReader::Source {
public:
    explicit PlainSource(int descriptor) : descriptor_(descriptor) {}
    ~PlainSource() override {
        if (descriptor_ != STDIN_FILENO)
            ::close(descriptor_);
    }
    PlainSource(const PlainSource&) = delete;
    PlainSource& operator=(const PlainSource&) = delete;

    long Read(char* buffer, std::size_t size, std::string* error) override {
        if (!head_.empty()) {
            const std::size_t taken = std::min(size, head_.size());
            std::memcpy(buffer, head_.data(), taken);
            head_.erase(0, taken);
            return static_cast<long>(taken);
        }
        return ReadDescriptor(buffer, size, error);
    }

    // The first bytes, which stay to be read. Fewer than asked for only at the end of the data.
    // Byte by byte, as a pipe may give fewer at a time and nothing can be put back into it.
    const std::string& Peek(std::size_t count, std::string* error) {
        char byte = 0;
        while (head_.size() < count && ReadDescriptor(&byte, 1, error) == 1)
            head_.push_back(byte);
        return head_;
    }

private:
    long ReadDescriptor(char* buffer, std::size_t size, std::string* error) {
        if (!AwaitInput())
            return 0;  // an interrupt ends the reading
        const ssize_t got = ::read(descriptor_, buffer, size);
        if (got >= 0)
            return got;
        if (errno == EINTR)
            return 0;
        *error = std::strerror(errno);
        return -1;
    }

    // Waits until there is something to read, or a failure to be told. False when interrupted.
    bool AwaitInput() const {
        pollfd waits[] = {{descriptor_, POLLIN, 0}, {InterruptDescriptor(), POLLIN, 0}};
        while (!Interrupted()) {
            const int ready = ::poll(waits, std::size(waits), -1);
            if (ready < 0 ? errno != EINTR : waits[0].revents != 0)
                return true;
        }
        return false;
    }

    const int descriptor_;
    std::string head_;
};

// That the input ends is right at the start of a member only; anywhere else the file was cut off.
class GzipSource final : public LineReader::Source {
public:
    explicit GzipSource(std::unique_ptr<Source> packed) : packed_(std::move(packed)) {
        constexpr int gzipWindow = 15 + 16;
        ready_ = ::inflateInit2(&stream_, gzipWindow) == Z_OK;
    }
    ~GzipSource() override { ::inflateEnd(&stream_); }
    GzipSource(const GzipSource&) = delete;
    GzipSource& operator=(const GzipSource&) = delete;

    long Read(char* buffer, std::size_t size, std::string* error) override {
        stream_.next_out = reinterpret_cast<Bytef*>(buffer);
        stream_.avail_out = static_cast<uInt>(size);
        while (ready_ && stream_.avail_out == size) {
            if (stream_.avail_in == 0 && !Refill(error))
                return atMemberStart_ && error->empty() ? 0 : Broken(error);
            const int result = ::inflate(&stream_, Z_NO_FLUSH);
            atMemberStart_ = result == Z_STREAM_END;
            // Several packed members may follow one another.
            if (result == Z_STREAM_END ? ::inflateReset(&stream_) != Z_OK : result != Z_OK)
                return Broken(error);
        }
        return ready_ ? static_cast<long>(size - stream_.avail_out) : Broken(error);
    }

private:
    bool Refill(std::string* error) {
        const long got = packed_->Read(input_, sizeof(input_), error);
        stream_.next_in = reinterpret_cast<Bytef*>(input_);
        stream_.avail_in = got > 0 ? static_cast<uInt>(got) : 0;
        return got > 0;
    }
    static long Broken(std::string* error) {
        if (error->empty())
            *error = "the gzip data is damaged or cut off";
        return -1;
    }

    std::unique_ptr<Source> packed_;
    z_stream stream_{};
    char input_[1U << 16];
    bool ready_ = false;
    bool atMemberStart_ = true;
};

// The library itself goes on from one packed piece to the next, and is told when the input has
// ended, since only it knows whether that is the right place.
class XzSource final : public LineReader::Source {
public:
    explicit XzSource(std::unique_ptr<Source> packed) : packed_(std::move(packed)) {
        ready_ = ::lzma_stream_decoder(&stream_, UINT64_MAX, LZMA_CONCATENATED) == LZMA_OK;
    }
    ~XzSource() override { ::lzma_end(&stream_); }
    XzSource(const XzSource&) = delete;
    XzSource& operator=(const XzSource&) = delete;

    long Read(char* buffer, std::size_t size, std::string* error) override {
        stream_.next_out = reinterpret_cast<std::uint8_t*>(buffer);
        stream_.avail_out = size;
        while (ready_ && !ended_ && !damaged_ && stream_.avail_out == size) {
            if (stream_.avail_in == 0 && !inputEnded_ && !Refill(error))
                return -1;
            const lzma_ret result = ::lzma_code(&stream_, inputEnded_ ? LZMA_FINISH : LZMA_RUN);
            ended_ = result == LZMA_STREAM_END;
            damaged_ = !ended_ && result != LZMA_OK;
            if (damaged_)
                break;
        }
        // What was unpacked ahead of the damage is good, and is given first.
        const auto unpacked = static_cast<long>(size - stream_.avail_out);
        if (unpacked > 0 || !damaged_)
            return unpacked;
        *error = "the xz data is damaged or cut off";
        return -1;
    }

private:
    bool Refill(std::string* error) {
        const long got = packed_->Read(input_, sizeof(input_), error);
        inputEnded_ = got == 0;
        stream_.next_in = reinterpret_cast<const std::uint8_t*>(input_);
        stream_.avail_in = got > 0 ? static_cast<std::size_t>(got) : 0;
        return got >= 0;
    }

    std::unique_ptr<Source> packed_;
    lzma_stream stream_ = LZMA_STREAM_INIT;
    char input_[1U << 16];
    bool ready_ = false;
    bool inputEnded_ = false;
    bool ended_ = false;
    bool damaged_ = false;
};

// By what the file holds and not by its name, which a pipe does not have.
std::unique_ptr<LineReader::Source> OpenSource(const std::string& file, std::string* error) {
    const int descriptor = file == "-" ? STDIN_FILENO : ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        *error = std::strerror(errno);
        return nullptr;
    }
    auto plain = std::make_unique<PlainSource>(descriptor);
    const std::string head = plain->Peek(6, error);
    if (!error->empty())
        return nullptr;
    if (head.starts_with("\x1f\x8b"))
        return std::make_unique<GzipSource>(std::move(plain));
    if (head == std::string("\xFD"
                            "7zXZ\0",
                            6))
        return std::make_unique<XzSource>(std::move(plain));
    return plain;
}

}  // namespace

LineReader::LineReader(const std::string& file)
    : source_(OpenSource(file, &error_)), buffer_(bufferSize, '\0') {}

LineReader::~LineReader() = default;

// Only once the buffer is used up: nothing is moved within it.
bool LineReader::Fill() {
    at_ = filled_ = 0;
    const long got = source_->Read(buffer_.data(), buffer_.size(), &error_);
    filled_ = got > 0 ? static_cast<std::size_t>(got) : 0;
    return got > 0;
}

// A line may span any number of fills. Once it is too long the rest of it is passed over.
LineReader::Status LineReader::Next(std::string* line) {
    line->clear();
    if (!source_)
        return Status::failed;
    bool tooLong = false;
    for (bool begun = false;; begun = true) {
        if (at_ == filled_ && !Fill()) {
            if (!error_.empty()) {
                source_.reset();
                return Status::failed;
            }
            if (!begun && line->empty())
                return Status::end;
            break;
        }
        if (!begun)
            ++lineNumber_;
        const char* const start = buffer_.data() + at_;
        const void* const found = std::memchr(start, '\n', filled_ - at_);
        const std::size_t length =
            found != nullptr ? static_cast<std::size_t>(static_cast<const char*>(found) - start)
                             : filled_ - at_;
        tooLong = tooLong || line->size() + length > longestLine;
        if (tooLong)
            std::string().swap(*line);
        else
            line->append(start, length);
        at_ += length + (found != nullptr ? 1 : 0);
        if (found != nullptr)
            break;
    }
    if (!tooLong && line->ends_with('\r'))
        line->pop_back();
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    if (lineNumber_ == 1 && line->starts_with(byteOrderMark))
        line->erase(0, byteOrderMark.size());
    return tooLong ? Status::tooLong : Status::line;
}

}  // namespace zel
