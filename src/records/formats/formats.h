#pragma once

#include <memory>
#include <span>
#include <string_view>

#include "records/mapping.h"
#include "records/recordsource.h"

namespace zel {

// A format that events come in: its name, how it is known, and who reads it. A new one is one file
// with its reader and table, and one row of the list in formats.cpp.
struct Format {
    std::string_view name;   // for --format, and as `source.format`
    std::string_view title;  // for people
    // Whether a line is of this format: cheaply, as each line may be asked for each format. Null
    // for formats that don't come in lines.
    bool (*knows)(const SourceLine& line);
    // A reader of lines. `mapper` outlives it and is shared by all formats of one input.
    std::unique_ptr<LineSource> (*makeReader)(Mapper& mapper);
};

// In the order in which a line is tried.
std::span<const Format> Formats();
// Null when there is none of that name.
const Format* FindFormat(std::string_view name);

}  // namespace zel
