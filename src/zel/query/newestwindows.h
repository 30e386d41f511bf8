#pragma once

#include <cpprest/json.h>

#include <cstdint>
#include <string>

namespace zel {

// A question's range of time as several, from the newest back, that together are the whole and do
// not overlap: the newest events are mostly found in the first of them. Each is asked of all
// folders, as a folder's date does not tell which times it holds.
class NewestWindows {
public:
    // `document` has passed CheckDocument. `wanted`: how many events are looked for. The dates of
    // the store's folders tell where to begin; they are looked up.
    NewestWindows(const web::json::value& document, std::int64_t wanted);
    NewestWindows(const web::json::value& document, std::int64_t wanted, std::string newestFolder);

    // Makes `document` the one for the next range; `found`: how many events the ranges so far had.
    // False when there is none left.
    bool Next(std::uint64_t found, web::json::value* document);

private:
    std::int64_t NextBegin(std::uint64_t found) const;

    const web::json::value document_;
    const std::uint64_t wanted_;
    bool isOne_ = false;      // the whole in one piece
    std::int64_t first_ = 0;  // milliseconds, of the question's begin
    std::int64_t top_ = 0;    // near the newest event
    std::int64_t begin_ = 0;  // of the last range that was given
    unsigned given_ = 0;
    bool isDone_ = false;
};

}  // namespace zel
