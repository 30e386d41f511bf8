#include "zel/results/orderedsink.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "zel/results/timeof.h"
#include "zel/terminal/messages.h"

// Entries gather in memory. Where only so many are wanted, those that can't be among them are
// dropped whenever twice as many have gathered; from then on an event that is no better than the
// least of the rest is passed over by its time alone. Where the memory is full all the same, its
// entries go into the file, in order, as one run; in the end the runs and what is in memory are
// merged.

namespace zel {

namespace {

// What an entry takes beside its texts.
constexpr std::size_t entryBytes = 192;

}  // namespace

int OrderedSink::Compare(std::string_view time, std::uint64_t arrival, const Entry& other) {
    if (const int byTime = time.compare(other.time); byTime != 0)
        return byTime;
    return arrival < other.arrival ? -1 : static_cast<int>(arrival > other.arrival);
}

std::size_t OrderedSink::SizeOf(const Entry& entry) {
    return entryBytes + entry.key.size() + entry.host.size() + entry.text.size();
}

bool OrderedSink::IsBetter(const Entry& a, const Entry& b) const {
    const int order = Compare(a.time, a.arrival, b);
    return order_.keepsNewest ? order > 0 : order < 0;
}

bool OrderedSink::StandsFirst(const Entry& a, const Entry& b) const {
    const int order = Compare(a.time, a.arrival, b);
    return order_.newestFirst ? order > 0 : order < 0;
}

bool OrderedSink::MayMatter(std::string_view text) {
    if (worst_.empty())
        return true;
    const std::string_view time = TimeOf(text);
    return order_.keepsNewest ? time >= worst_ : time < worst_;
}

bool OrderedSink::Take(const FoundEvent& event) {
    constexpr std::int64_t atLeast = 500;
    const std::uint64_t arrival = order_.fromNewest ? ~arrivals_ : arrivals_;
    ++arrivals_;
    Entry entry{order_.byArrival ? "" : std::string(TimeOf(event.text)), arrival,
                std::string(event.key), std::string(event.host), std::string(event.text)};
    bytes_ += SizeOf(entry);
    entries_.push_back(std::move(entry));
    const bool isBounded = order_.most >= 0;
    const auto count = static_cast<std::int64_t>(entries_.size());
    if (isBounded && (count - atLeast) / 2 >= order_.most)
        Prune();
    if (bytes_ < mostBytes_)
        return true;
    if (isBounded && count > order_.most)
        Prune();
    return bytes_ < mostBytes_ / 2 || Spill();
}

void OrderedSink::Prune() {
    const auto most = static_cast<std::size_t>(order_.most);
    if (entries_.size() <= most)
        return;
    std::nth_element(entries_.begin(), entries_.begin() + order_.most, entries_.end(),
                     [this](const Entry& a, const Entry& b) { return IsBetter(a, b); });
    entries_.resize(most);
    bytes_ = 0;
    const Entry* worst = nullptr;
    for (const Entry& entry : entries_) {
        bytes_ += SizeOf(entry);
        if (worst == nullptr || IsBetter(*worst, entry))
            worst = &entry;
    }
    if (worst != nullptr)
        worst_ = worst->time;
}

void OrderedSink::SortEntries() {
    std::sort(entries_.begin(), entries_.end(),
              [this](const Entry& a, const Entry& b) { return StandsFirst(a, b); });
}

bool OrderedSink::Spill() {
    SortEntries();
    const std::uint64_t begin = file_.End();
    for (const Entry& entry : entries_)
        if (!file_.Append(entry.time) || !file_.Append(std::to_string(entry.arrival)) ||
            !file_.Append(entry.key) || !file_.Append(entry.host) || !file_.Append(entry.text))
            return false;
    runs_.push_back({begin, file_.End()});
    spilled_ += entries_.size();
    entries_.clear();
    bytes_ = 0;
    return true;
}

// The runs, of each the entry that stands first next, and the entries of memory as one more.
class OrderedSink::Merge {
public:
    explicit Merge(OrderedSink& sink) : sink_(sink) {
        for (const Span& run : sink.runs_) {
            sources_.push_back({SpillFile::Reader(sink.file_, run.begin, run.end), {}});
            if (ReadNext(sources_.back()))
                heads_.push_back(sources_.size() - 1);
        }
        std::make_heap(heads_.begin(), heads_.end(), Later{*this});
    }

    // False when there is none left. The entry is good until the next call.
    bool Next(const Entry** entry) {
        if (last_ != none) {
            const std::size_t source = std::exchange(last_, none);
            if (ReadNext(sources_[source])) {
                heads_.push_back(source);
                std::push_heap(heads_.begin(), heads_.end(), Later{*this});
            }
        }
        const bool hasMemory = inMemory_ < sink_.entries_.size();
        if (heads_.empty() && !hasMemory)
            return false;
        if (heads_.empty() || (hasMemory && sink_.StandsFirst(sink_.entries_[inMemory_],
                                                              sources_[heads_.front()].head))) {
            *entry = &sink_.entries_[inMemory_++];
            return true;
        }
        std::pop_heap(heads_.begin(), heads_.end(), Later{*this});
        last_ = heads_.back();
        heads_.pop_back();
        *entry = &sources_[last_].head;
        return true;
    }

private:
    static constexpr std::size_t none = static_cast<std::size_t>(-1);
    struct Source {
        SpillFile::Reader reader;
        Entry head;
    };
    struct Later {
        const Merge& merge;
        bool operator()(std::size_t a, std::size_t b) const {
            return merge.sink_.StandsFirst(merge.sources_[b].head, merge.sources_[a].head);
        }
    };

    static bool ReadNext(Source& source) {
        std::string_view text;
        const auto read = [&](std::string& to) {
            if (!source.reader.Next(&text))
                return false;
            to = text;
            return true;
        };
        std::string arrival;
        if (!read(source.head.time) || !read(arrival) || !read(source.head.key) ||
            !read(source.head.host) || !read(source.head.text))
            return false;
        std::from_chars(arrival.data(), arrival.data() + arrival.size(), source.head.arrival);
        return true;
    }

    OrderedSink& sink_;
    std::vector<Source> sources_;
    std::vector<std::size_t> heads_;  // a heap of those that have one
    std::size_t inMemory_ = 0;
    std::size_t last_ = none;  // the source whose head was given last
};

// What is kept may be more than what is wanted, which stands first in it or last.
bool OrderedSink::Finish() {
    SortEntries();
    const std::uint64_t kept = spilled_ + entries_.size();
    const std::uint64_t wanted =
        order_.most < 0 ? kept : std::min(kept, static_cast<std::uint64_t>(order_.most));
    const std::uint64_t skipped =
        order_.keepsNewest && !order_.newestFirst ? kept - wanted : std::uint64_t{0};
    Merge merge(*this);
    const Entry* entry = nullptr;
    for (std::uint64_t at = 0; at < skipped + wanted && merge.Next(&entry); ++at)
        if (Interrupted() || (at >= skipped && !next_.Take({entry->text, entry->key, entry->host})))
            return false;
    return file_.Problem().empty() && next_.Finish();
}

std::string OrderedSink::Problem() const {
    return file_.Problem().empty() ? next_.Problem()
                                   : "the answer can't be put in order: " + file_.Problem();
}

}  // namespace zel
