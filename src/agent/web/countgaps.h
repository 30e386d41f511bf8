#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/web/countcache.h"
#include "agent/web/eventquestion.h"
#include "records/recordreader.h"

namespace zel {

// A range of time of which events are missing, as the service has noted it (notices.h).
struct EventGap {
    std::string reason;
    EventSpan range;
    std::uint64_t events = 0;  // 0: not known
};

// What an event tells of a gap; none for all other events. For one thread.
class GapReader {
public:
    std::optional<EventGap> Read(const ZEL::QueryRow& row, const EventKeyHead& head);

private:
    RecordReader reader_;
};

// Values of columns that were counted lately, to be offered to who types. Any thread.
class ShownValues {
public:
    void Put(std::string_view column, std::vector<std::string> values);
    std::vector<std::string> Of(std::string_view column);

private:
    std::mutex mutex_;
    std::map<std::string, std::vector<std::string>, std::less<>> values_;
};

// Why rules fit an event, in lines, by what they are known by (RuleMark). Any thread.
using ExplainRules =
    std::function<std::map<std::string, std::vector<std::string>>(std::string_view event)>;

// What an answer needs beside the store. All outlive it.
struct CountContext {
    const AskByParameters& ask;
    IStoreChanges& changes;
    CountCache& cache;
    ShownValues& seen;
    const ExplainRules& explain;  // may be empty
};

// The gaps that a walk over all events meets. For one thread.
class GapGathering {
public:
    using Gaps = std::vector<EventGap>;

    void Add(const ZEL::QueryRow& row, const EventKeyHead& head);
    const Gaps& Found() const noexcept { return *gaps_; }
    // Behind a whole walk: so that GapsOf finds them. `mark`: of the moment ahead of it.
    void Keep(const CountContext& context, const std::string& mark) const;

private:
    GapReader reader_;
    const std::shared_ptr<Gaps> gaps_ = std::make_shared<Gaps>();
};

// All gaps that are noted in the store; by one walk, unless it is known that there are no others
// than the last time.
std::vector<EventGap> GapsOf(QuestionWork& work, const CountContext& context);
// As JSON, those that touch the range.
std::string GapsJson(const std::vector<EventGap>& gaps, const EventSpan& range);

}  // namespace zel
