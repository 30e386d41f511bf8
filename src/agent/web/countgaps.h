#pragma once

#include <cstdint>
#include <memory>
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

// What an answer needs beside the store. All outlive it.
struct CountContext {
    const AskByParameters& ask;
    IStoreChanges& changes;
    CountCache& cache;
};

// All gaps that are noted in the store; by one walk, unless it is known that there are no others
// than the last time.
std::vector<EventGap> GapsOf(QuestionWork& work, const CountContext& context);
// As JSON, those that touch the range.
std::string GapsJson(const std::vector<EventGap>& gaps, const EventSpan& range);

}  // namespace zel
