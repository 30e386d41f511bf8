#include "records/input/archive.h"

#include <archive.h>
#include <archive_entry.h>

#include <cerrno>
#include <memory>
#include <new>

// Archives are read from the front to the end, so that they may come through a pipe; a zip's list
// at its end is not needed for that. The formats are named one by one, so that the library does not
// try what nobody asked for.

namespace zel {

namespace {

struct CloseArchive {
    void operator()(archive* opened) const { ::archive_read_free(opened); }
};
using Opened = std::unique_ptr<archive, CloseArchive>;

std::string ErrorOf(archive* opened) {
    const char* const text = ::archive_error_string(opened);
    return text != nullptr ? text : "the archive is damaged";
}

// How the library gets the archive's bytes. What was wrong with them it keeps as its own error.
struct Feed {
    ByteStream& stream;
    std::string error;
    char buffer[1U << 16];
};

la_ssize_t ReadFeed(archive* opened, void* data, const void** bytes) {
    Feed& feed = *static_cast<Feed*>(data);
    *bytes = feed.buffer;
    const long got = feed.stream.Read(feed.buffer, sizeof(feed.buffer), &feed.error);
    if (got < 0)
        ::archive_set_error(opened, EIO, "%s", feed.error.c_str());
    return got;
}

class EntryStream final : public ByteStream {
public:
    explicit EntryStream(archive* opened) : opened_(opened) {}

    long Read(char* buffer, std::size_t size, std::string* error) override {
        const la_ssize_t got = ::archive_read_data(opened_, buffer, size);
        if (got >= 0)
            return static_cast<long>(got);
        *error = ErrorOf(opened_);
        failed_ = true;
        return -1;
    }
    bool Failed() const noexcept { return failed_; }

private:
    archive* const opened_;
    bool failed_ = false;
};

std::string NameOf(archive_entry* entry) {
    const char* name = ::archive_entry_pathname_utf8(entry);
    if (name == nullptr)
        name = ::archive_entry_pathname(entry);
    return name != nullptr ? name : "(no name)";
}

}  // namespace

bool IsArchive(std::string_view head) {
    using namespace std::string_view_literals;
    constexpr std::size_t tarMark = 257;
    return head.starts_with("PK\3\4"sv) || head.starts_with("PK\5\6"sv) ||
           (head.size() >= archiveHeadSize && head.substr(tarMark, 5) == "ustar");
}

ArchiveEnd ReadArchive(ByteStream& stream,
                       const std::function<bool(const ArchiveEntry&, ByteStream& file)>& take,
                       std::string* error) {
    const Opened opened(::archive_read_new());
    if (!opened)
        throw std::bad_alloc();
    const auto feed = std::make_unique<Feed>(Feed{stream, {}, {}});
    ::archive_read_support_format_zip_streamable(opened.get());
    ::archive_read_support_format_tar(opened.get());
    int result = ::archive_read_open(opened.get(), feed.get(), nullptr, ReadFeed, nullptr);
    bool isTold = false;
    while (result >= ARCHIVE_WARN) {
        archive_entry* entry = nullptr;
        result = ::archive_read_next_header(opened.get(), &entry);
        if (result == ARCHIVE_EOF)
            return ArchiveEnd::all;
        if (result < ARCHIVE_WARN || ::archive_entry_filetype(entry) != AE_IFREG)
            continue;
        EntryStream file(opened.get());
        if (!take({NameOf(entry), ::archive_entry_mtime(entry)}, file))
            return ArchiveEnd::stopped;
        isTold = file.Failed();
    }
    if (isTold)
        return ArchiveEnd::all;
    *error = ErrorOf(opened.get());
    return ArchiveEnd::damaged;
}

}  // namespace zel
