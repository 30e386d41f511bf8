#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "agent/agentlog.h"
#include "agent/linestream.h"

namespace zel {

// What became of the events of one request, for its answer: how many, and of those that were
// rejected the first few. For one thread.
class EventTally {
public:
    // Of what is on the disk now; counts for the service as well.
    void Add(const Delivery& delivery, const LineProblems& problems, AgentLog& log);
    // One object; `further` are members of it: ",\"name\":value".
    std::string Json(const std::string& further = "") const;

private:
    std::uint64_t accepted_ = 0, duplicates_ = 0, rejected_ = 0;
    std::vector<std::pair<std::uint64_t, std::string>> told_;
};

}  // namespace zel
