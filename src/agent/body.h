#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "agent/http.h"

namespace zel {

// Unpacks the body in place (gzip, zstd; the name "identity" or none: as it is), to at most so many
// bytes: no peer may make a few kilobytes fill the memory. 0, or the status of the refusal with its
// words.
int UnpackBody(const HttpHead& head, std::uint64_t most, std::string* body, std::string* problem);

// The lines of a body, which are what is between ends of lines, without empty ones. `number` counts
// all lines from 1. Of XML an event ends a line as well; a JSON array gives its members, by their
// places. False when such an array is broken.
bool ForEachLine(std::string_view body,
                 const std::function<void(std::string_view line, std::uint64_t number)>& take);

}  // namespace zel
