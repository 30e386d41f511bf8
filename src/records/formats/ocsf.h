#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "records/formats/formats.h"

namespace zel {

// Events in the Open Cybersecurity Schema Framework, version 1.
bool KnowsOcsf(const SourceLine& line);
std::unique_ptr<LineSource> MakeOcsf(Mapper& mapper);

// Writes records as such events. What the schema has no place for goes into the event's `unmapped`,
// so that nothing is lost; a record that no class fits becomes a base event that holds it whole.
// Keeps its memory from one record to the next. For one thread.
class OcsfWriter {
public:
    OcsfWriter();
    ~OcsfWriter();
    OcsfWriter(const OcsfWriter&) = delete;
    OcsfWriter& operator=(const OcsfWriter&) = delete;

    // Appends one line of JSON, without its end, to `*out`. `record` is the text of one record. On
    // failure, with the reason in Error, `*out` stays as it was.
    bool Write(std::string_view record, std::string* out);
    const std::string& Error() const noexcept { return error_; }

private:
    struct Working;
    const std::unique_ptr<Working> working_;
    std::string error_;
};

}  // namespace zel
