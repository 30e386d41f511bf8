#include "records/formats/evtx.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "records/formats/binxml.h"
#include "records/formats/windowsevent.h"

// The file is read from the front to the end, a chunk at a time, so it may come through a pipe and
// be of any size. A log that was copied while it was in use has an old number of chunks in its
// head, so chunks are read to the file's end. Behind the last of them there may be room that was
// never used, with whatever the disk held there: that is no damage.
//
//   file   = "ElfFile\0" ... number of chunks:2 at 42, in 4096 bytes; chunks of 65536
//   chunk  = "ElfChnk\0" ... end of records:4 at 48, ..., records from 512 on
//   record = 2A 2A 00 00 size:4 number:8 time:8 binary XML, size:4
//
// The records of a chunk stand behind one another up to its end of records: that is its list.
// Behind that, and in a chunk without its mark, there may be others, which only a search finds:
// former ones that were not overwritten yet, or those of a log whose end was never written.

namespace zel {

namespace {

using namespace std::string_view_literals;

constexpr std::string_view fileMark = "ElfFile\0"sv;
constexpr std::string_view chunkMark = "ElfChnk\0"sv;
constexpr std::string_view recordMark = "\x2A\x2A\0\0"sv;
constexpr std::size_t fileHeadSize = 4096;
constexpr std::size_t numberOfChunksAt = 42;
constexpr std::size_t chunkSize = 65536;
constexpr std::size_t chunkHeadSize = 512;
constexpr std::size_t endOfRecordsAt = 48;
constexpr std::size_t recordHeadSize = 24;
constexpr std::size_t recordTailSize = 4;

class Evtx final : public RecordSource {
public:
    Evtx(ByteStream& bytes, Mapper& mapper) : bytes_(bytes), mapper_(mapper) {}

    bool Next(SourceItem* item) override {
        if (!hasHead_)
            ReadHead();
        while (!hasEnded_) {
            if (isListed_ ? TakeListed(item) : isSearched_ && TakeFound(item))
                return true;
            if (isListed_ || isSearched_)
                continue;
            if (ReadChunk(item))
                return true;
        }
        return false;
    }

    std::string Error() const override { return error_; }

private:
    void ReadHead();
    bool ReadChunk(SourceItem* item);
    bool TakeListed(SourceItem* item);
    bool TakeFound(SourceItem* item);
    bool Map(std::size_t place, std::size_t size, SourceItem* item);
    bool Refuse(std::string_view problem, SourceItem* item);
    void EndList();
    void Fill(std::size_t size);
    // Of the record there; 0 when there is none.
    std::size_t SizeOfRecord(std::size_t place, std::size_t end) const;
    template <typename Number>
    Number At(std::size_t place) const {
        Number number;
        std::memcpy(&number, chunk_.data() + place, sizeof(number));
        return number;
    }

    ByteStream& bytes_;
    Mapper& mapper_;
    BinXml xml_;
    SourceFields fields_;
    std::string chunk_;
    std::string error_;
    std::vector<std::size_t> listed_;  // where the records of the chunk's list begin, in order
    std::size_t at_ = 0;
    std::size_t end_ = 0;
    std::uint64_t record_ = 0;  // the number of the last one that was looked at
    std::uint64_t chunkNumber_ = 0;
    std::uint64_t chunksInHead_ = 0;
    std::uint64_t unmarked_ = 0;  // chunks without a mark that may be unused room
    bool hasHead_ = false;
    bool hasEnded_ = false;
    bool isListed_ = false;    // the chunk's list is being read
    bool isSearched_ = false;  // the chunk is being searched
};

// As many bytes as there are, up to `size`.
void Evtx::Fill(std::size_t size) {
    chunk_.resize(size);
    std::size_t filled = 0;
    while (filled < size) {
        const long got = bytes_.Read(chunk_.data() + filled, size - filled, &error_);
        if (got <= 0)
            break;
        filled += static_cast<std::size_t>(got);
    }
    chunk_.resize(filled);
}

void Evtx::ReadHead() {
    hasHead_ = true;
    Fill(fileHeadSize);
    if (chunk_.size() == fileHeadSize && chunk_.starts_with(fileMark)) {
        chunksInHead_ = At<std::uint16_t>(numberOfChunksAt);
        return;
    }
    hasEnded_ = true;
    if (error_.empty())
        error_ = "no Windows event log: its head is missing or cut off";
}

// True when there is something to be told of it. Room for later chunks is filled with zeros.
bool Evtx::ReadChunk(SourceItem* item) {
    if (!error_.empty()) {
        hasEnded_ = true;
        return false;
    }
    Fill(chunkSize);
    if (chunk_.size() < chunkSize && error_.empty() && !chunk_.empty())
        error_ = "the file is cut off within a chunk";
    hasEnded_ = chunk_.size() <= chunkHeadSize;
    if (hasEnded_)
        return false;
    ++chunkNumber_;
    if (chunk_.find_first_not_of('\0') == chunk_.npos)
        return false;
    xml_.SetChunk({reinterpret_cast<const std::uint8_t*>(chunk_.data()), chunk_.size()});
    listed_.clear();
    at_ = chunkHeadSize;
    isListed_ = chunk_.starts_with(chunkMark);
    if (!isListed_) {
        EndList();
        unmarked_ += chunkNumber_ > chunksInHead_ ? 1 : 0;
        return chunkNumber_ <= chunksInHead_ && Refuse("a chunk has no mark", item);
    }
    end_ = std::min<std::size_t>(At<std::uint32_t>(endOfRecordsAt), chunk_.size());
    // What was taken for unused room has a chunk behind it.
    return std::exchange(unmarked_, 0) > 0 && Refuse("chunks ahead of this one have no mark", item);
}

void Evtx::EndList() {
    isListed_ = false;
    isSearched_ = mapper_.Options().recovers;
    at_ = chunkHeadSize;
    end_ = chunk_.size();
}

std::size_t Evtx::SizeOfRecord(std::size_t place, std::size_t end) const {
    constexpr std::size_t least = recordHeadSize + recordTailSize;
    if (place > end || end - place < least ||
        std::string_view(chunk_).substr(place, recordMark.size()) != recordMark)
        return 0;
    const std::size_t size = At<std::uint32_t>(place + recordMark.size());
    const bool isGood = size >= least && size <= end - place &&
                        At<std::uint32_t>(place + size - recordTailSize) == size;
    return isGood ? size : 0;
}

bool Evtx::TakeListed(SourceItem* item) {
    if (at_ >= end_) {
        EndList();
        return false;
    }
    const std::size_t place = at_;
    const std::size_t size = SizeOfRecord(place, end_);
    if (size == 0) {
        EndList();
        return Refuse("the list of a chunk's events is damaged; those behind are missing", item);
    }
    at_ += size;
    listed_.push_back(place);
    return Map(place, size, item) || Refuse("the event is damaged", item);
}

// Most of what is found behind a list was overwritten in part, so what can't be read is no loss
// that could be told.
bool Evtx::TakeFound(SourceItem* item) {
    for (;;) {
        at_ = chunk_.find(recordMark, at_);
        if (at_ >= end_) {
            isSearched_ = false;
            return false;
        }
        const std::size_t place = at_;
        const std::size_t size = SizeOfRecord(place, end_);
        at_ += std::max(size, recordMark.size());
        if (size != 0 && !std::binary_search(listed_.begin(), listed_.end(), place) &&
            Map(place, size, item))
            return true;
    }
}

bool Evtx::Map(std::size_t place, std::size_t size, SourceItem* item) {
    fields_.Clear();
    record_ = At<std::uint64_t>(place + 8);
    const bool isRead = xml_.Read(place + recordHeadSize, place + size - recordTailSize, &fields_);
    const WindowsShape* const shape = isRead ? ShapeOf(fields_) : nullptr;
    if (shape == nullptr)
        return false;
    MapWindowsEvent(*shape, "evtx", fields_, mapper_, item);
    item->place = record_;
    return true;
}

bool Evtx::Refuse(std::string_view problem, SourceItem* item) {
    item->Clear();
    item->problem = problem;
    item->detail = " (chunk " + std::to_string(chunkNumber_) + ")";
    item->place = record_;
    return true;
}

}  // namespace

bool KnowsEvtx(std::string_view head) {
    return head.starts_with(fileMark);
}

std::unique_ptr<RecordSource> MakeEvtx(ByteStream& bytes, Mapper& mapper) {
    return std::make_unique<Evtx>(bytes, mapper);
}

}  // namespace zel
