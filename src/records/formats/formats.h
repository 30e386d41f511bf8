#pragma once

#include <memory>
#include <span>
#include <string_view>

#include "records/input/bytestream.h"
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
    // A reader of lines. `mapper` outlives it and is shared by all formats of one input. Null for
    // the store's own records, which need none, and for formats that don't come in lines.
    std::unique_ptr<LineSource> (*makeReader)(Mapper& mapper);
    // Of formats that are whole files: whether the first bytes are such a file's, and a reader of
    // it. Both arguments outlive the reader.
    bool (*knowsFile)(std::string_view head) = nullptr;
    std::unique_ptr<RecordSource> (*makeFileReader)(ByteStream& bytes, Mapper& mapper) = nullptr;
};

// In the order in which a line is tried.
std::span<const Format> Formats();
// Null when there is none of that name.
const Format* FindFormat(std::string_view name);
// The one of whole files that begin like this; null when there is none.
const Format* FindFileFormat(std::string_view head);
// Whether it is the store's own form.
bool IsRecordFormat(const Format& format);

}  // namespace zel
