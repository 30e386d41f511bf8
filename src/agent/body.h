#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "agent/http.h"
#include "agent/linecutter.h"

namespace zel {

// Unpacks the body in place (gzip, zstd; the name "identity" or none: as it is), to at most so many
// bytes: no peer may make a few kilobytes fill the memory. 0, or the status of the refusal with its
// words.
int UnpackBody(const HttpHead& head, std::uint64_t most, std::string* body, std::string* problem);

enum class BodyLines { good, brokenArray, longArray };

// The lines of a whole body; a JSON array gives its members, by their places. One that is broken,
// or has more than `most`, gives none.
BodyLines ForEachLine(std::string_view body, std::uint64_t most, const LineCutter::Take& take);

// The id of a line's event where the request has brought one for all; empty without.
std::string IdOfLine(const std::string& key, const CutLine& line);

}  // namespace zel
