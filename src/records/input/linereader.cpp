#include "records/input/linereader.h"

#include <cstring>

namespace zel {

namespace {

constexpr std::size_t bufferSize = 256U << 10;

}  // namespace

LineReader::LineReader(ByteStream& stream, std::string_view alsoEndsAt)
    : stream_(stream), alsoEndsAt_(alsoEndsAt), buffer_(bufferSize, '\0') {}

// Only once the buffer is used up: nothing is moved within it.
bool LineReader::Fill() {
    at_ = filled_ = 0;
    const long got = stream_.Read(buffer_.data(), buffer_.size(), &error_);
    filled_ = got > 0 ? static_cast<std::size_t>(got) : 0;
    return got > 0;
}

// The mark may stand across two fills, its end always in the last of them: what is behind it goes
// back there.
bool LineReader::CutAtMark(std::string* line, std::size_t before) {
    if (alsoEndsAt_.empty())
        return false;
    const std::size_t from = before - std::min(before, alsoEndsAt_.size());
    const std::size_t found = line->find(alsoEndsAt_, from);
    if (found == line->npos)
        return false;
    const std::size_t end = found + alsoEndsAt_.size();
    at_ -= line->size() - end;
    line->resize(end);
    return true;
}

// A line may span any number of fills. Once it is too long the rest of it is passed over.
LineReader::Status LineReader::Next(std::string* line) {
    line->clear();
    if (!error_.empty())
        return Status::failed;
    bool tooLong = false;
    for (bool begun = false;; begun = true) {
        if (at_ == filled_ && !Fill()) {
            if (!error_.empty())
                return Status::failed;
            if (!begun && line->empty())
                return Status::end;
            break;
        }
        lineNumber_ += begun || isWithinLine_ ? 0 : 1;
        isWithinLine_ = false;
        const char* const start = buffer_.data() + at_;
        const void* const found = std::memchr(start, '\n', filled_ - at_);
        const std::size_t length =
            found != nullptr ? static_cast<std::size_t>(static_cast<const char*>(found) - start)
                             : filled_ - at_;
        const std::size_t before = line->size();
        tooLong = tooLong || before + length > longestLine;
        if (tooLong)
            std::string().swap(*line);
        else
            line->append(start, length);
        at_ += length;
        isWithinLine_ = !tooLong && CutAtMark(line, before);
        if (isWithinLine_)
            return Status::line;
        at_ += found != nullptr ? 1 : 0;
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
