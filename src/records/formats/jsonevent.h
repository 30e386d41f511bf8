#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>

#include "records/recordsource.h"
#include "records/sourcefields.h"

namespace zel {

// A source of lines that are one JSON object each, and one event each.
class JsonEventSource : public LineSource {
public:
    void Give(const SourceLine& line) final { line_ = line; }
    bool Next(SourceItem* item) final;

private:
    // Fills all of `*item`, which is cleared, but its place.
    virtual void Read(SourceFields& fields, SourceItem* item) = 0;

    std::optional<SourceLine> line_;
};

// The first of "a|b" that is there, marked as taken; empty when there is none.
std::string_view TakeFirst(SourceFields& fields, std::string_view names);

// The same of a whole number. A field that holds no such number is left alone.
std::optional<std::uint64_t> TakeNumber(
    SourceFields& fields, std::string_view names,
    std::uint64_t most = std::numeric_limits<std::uint64_t>::max());

}  // namespace zel
