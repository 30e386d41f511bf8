#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "records/columns.h"
#include "records/jsonfields.h"
#include "records/sourcefields.h"

namespace zel {

// The values of an event's columns, of the record's text. Used for one event after the other, it
// keeps its memory. For one thread.
class RecordReader {
public:
    // False, with the reason in Error, when the text is no JSON object. Must live as long as values
    // are asked for.
    bool Read(std::string_view record);
    const std::string& Error() const noexcept { return json_.Error(); }

    // None where the record has none, or one that says that it is not known ("", "-"), and for
    // what comes beside the text. Good until the next call of any kind.
    std::optional<std::string_view> Value(const Column& column);

    // By the dotted name of a member ("artifacts.actor.path.value"); of an array the first. Null
    // when there is none.
    const SourceField* Find(std::string_view name) { return fields_.FindWhole(name); }

private:
    std::optional<std::string_view> ValueAt(std::string_view places, const Column& column);
    const SourceField* LeastOf(const SourceField* first, bool foldsCase);

    std::string_view record_;
    JsonFields json_;
    SourceFields fields_;
    std::string joined_;
};

}  // namespace zel
