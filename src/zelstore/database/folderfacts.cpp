#include "zelstore/database/folderfacts.h"

#include <leveldb/filter_policy.h>
#include <leveldb/slice.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>

#include "common/asciicase.h"
#include "zelstore/keys/keysplit.h"

// A value is known by a number of 64 bits, made of its bytes in upper case and its field, so that
// comparisons with and without case are served by one filter. Two values may share a number; the
// folder is then opened in vain.
//
// The filter is LevelDB's own Bloom filter, over those numbers. Every piece of a key that bears a
// remembered field's name is put in, also one that a later piece of that name hides from readers of
// keys: too much in the filter costs time, too little would cost answers.

namespace ZEL {

namespace {

constexpr KeyField rememberedFields[] = {KeyField::actorHash, KeyField::targetHash,
                                         KeyField::actorUid, KeyField::correlationUid};
// Time, number and kind; what stands behind them only tells rows of one moment apart.
constexpr std::size_t mostOfAKey = 96;
constexpr int mostBitsAValue = 10;  // one in a hundred values that are not there seems to be
constexpr int leastBitsAValue = 4;

std::atomic<std::size_t> bytesOfAll{0};

std::uint64_t MarkOf(KeyField field, std::string_view value) {
    char upper[128];
    std::string longer;
    char* folded = upper;
    if (value.size() > sizeof(upper)) {
        longer.resize(value.size());
        folded = longer.data();
    }
    for (std::size_t i = 0; i < value.size(); ++i)
        folded[i] = ToUpperAscii(value[i]);
    const std::size_t mark = std::hash<std::string_view>()({folded, value.size()});
    return mark * 31 + IndexOf(field) + 1;
}

leveldb::Slice SliceOf(const std::uint64_t& mark) {
    return {reinterpret_cast<const char*>(&mark), sizeof(mark)};
}

// The number of bits counts when a filter is made; a made one tells it itself.
std::unique_ptr<const leveldb::FilterPolicy> Policy(int bits) {
    return std::unique_ptr<const leveldb::FilterPolicy>(leveldb::NewBloomFilterPolicy(bits));
}

}  // namespace

FolderFacts::~FolderFacts() {
    bytesOfAll.fetch_sub(bytes_, std::memory_order_relaxed);
}

// The keys are known by what they begin with, so what is not told by that may be there. Where a
// walk begins behind the first row, that row's time tells nothing of the rows that it meets.
bool FolderFacts::MayHoldRows(std::string_view startKey, std::string_view endTime) const noexcept {
    if (!hasRows_ || startKey.substr(0, lastKey_.size()) > lastKey_)
        return false;
    return endTime.empty() || firstTime_.empty() || startKey > firstKey_ || firstTime_ <= endTime;
}

bool FolderFacts::IsRemembered(KeyField field) noexcept {
    return std::find(std::begin(rememberedFields), std::end(rememberedFields), field) !=
           std::end(rememberedFields);
}

bool FolderFacts::MayHold(KeyField field, std::string_view value) const {
    if (filter_.empty())
        return true;
    static const auto policy = Policy(mostBitsAValue);
    const std::uint64_t mark = MarkOf(field, value);
    return policy->KeyMayMatch(SliceOf(mark), filter_);
}

void FactsCollector::Add(std::string_view key) {
    lastKey_.assign(key, 0, mostOfAKey);
    if (rows_++ == 0) {
        firstKey_ = lastKey_;
        KeyFields fields;
        std::string_view time;
        SplitKeyFields(key, &fields);
        if (Succeeded(GetKeyField(fields, KeyFieldName(KeyField::beginTime), &time)))
            firstTime_ = time;
    }
    while (!key.empty()) {
        const void* const mark = std::memchr(key.data(), '<', key.size());
        const std::size_t end =
            mark != nullptr ? static_cast<std::size_t>(static_cast<const char*>(mark) - key.data())
                            : key.size();
        AddPiece(key.substr(0, end));
        key.remove_prefix(std::min(end + 1, key.size()));
    }
}

void FactsCollector::AddPiece(std::string_view piece) {
    for (std::size_t i = 0; i < std::size(rememberedFields); ++i) {
        const std::string_view name = KeyFieldName(rememberedFields[i]);
        if (piece.size() <= name.size() || piece[name.size()] != '>' || !piece.starts_with(name))
            continue;
        // Neighbours are mostly of one process.
        const std::string_view value = piece.substr(name.size() + 1);
        if (!value.empty() && value == lastValues_[i])
            continue;
        lastValues_[i] = value;
        marks_.Insert(MarkOf(rememberedFields[i], value));
    }
}

std::shared_ptr<const FolderFacts> FactsCollector::Finish() {
    std::shared_ptr<FolderFacts> facts(new FolderFacts);
    facts->hasRows_ = rows_ != 0;
    facts->firstKey_ = std::move(firstKey_);
    facts->lastKey_ = std::move(lastKey_);
    facts->firstTime_ = std::move(firstTime_);
    facts->filter_ = MakeFilter();
    facts->bytes_ = sizeof(FolderFacts) + facts->firstKey_.size() + facts->lastKey_.size() +
                    facts->firstTime_.size() + facts->filter_.size();
    const std::size_t former = bytesOfAll.fetch_add(facts->bytes_, std::memory_order_relaxed);
    if (former + facts->bytes_ > FolderFacts::mostBytesOfAll)
        return nullptr;
    return facts;
}

// Without any value the filter lets none pass.
std::string FactsCollector::MakeFilter() const {
    const std::size_t bits = marks_.Count() != 0
                                 ? std::min<std::size_t>(mostBitsAValue, rows_ * 8 / marks_.Count())
                                 : mostBitsAValue;
    std::string filter;
    if (bits < leastBitsAValue || marks_.IsFull())
        return filter;
    const std::vector<std::uint64_t> all = marks_.All();
    std::vector<leveldb::Slice> values;
    values.reserve(all.size());
    for (const std::uint64_t& mark : all)
        values.push_back(SliceOf(mark));
    Policy(static_cast<int>(bits))
        ->CreateFilter(values.data(), static_cast<int>(values.size()), &filter);
    return filter;
}

void FactsCollector::Marks::Insert(std::uint64_t mark) {
    if (IsFull())
        return;
    if (count_ * 2 >= table_.size())
        Grow();
    mark += mark == 0 ? 1 : 0;
    const std::size_t mask = table_.size() - 1;
    std::size_t at = mark & mask;
    while (table_[at] != 0 && table_[at] != mark)
        at = (at + 1) & mask;
    count_ += table_[at] == 0 ? 1 : 0;
    table_[at] = mark;
}

void FactsCollector::Marks::Grow() {
    constexpr std::size_t smallest = 256;
    std::vector<std::uint64_t> former(std::max(table_.size() * 2, smallest));
    former.swap(table_);
    count_ = 0;
    for (const std::uint64_t mark : former)
        if (mark != 0)
            Insert(mark);
}

std::vector<std::uint64_t> FactsCollector::Marks::All() const {
    std::vector<std::uint64_t> all;
    all.reserve(count_);
    std::copy_if(table_.begin(), table_.end(), std::back_inserter(all),
                 [](std::uint64_t mark) { return mark != 0; });
    return all;
}

}  // namespace ZEL
