#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "records/sourcefields.h"

namespace zel {

// Reads JSON objects into fields. Keeps its memory from one text to the next. For one thread.
class JsonFields {
public:
    JsonFields();
    ~JsonFields();
    JsonFields(const JsonFields&) = delete;
    JsonFields& operator=(const JsonFields&) = delete;

    // Adds the members of the object that `json` is, with `prefix` in front of their names
    // ("event_data."); below `deepest` levels objects stay one field of JSON. False, with the
    // reason in Error, when the text is no JSON object; some fields may have been added then. The
    // fields' texts are views that live until the next Read or Split; `json` need not live.
    bool Read(std::string_view json, SourceFields* fields, std::string_view prefix = {});
    // The texts of the values of a JSON array. False as above.
    bool Split(std::string_view json, std::vector<std::string>* items);
    // In words, such as "not JSON: ...".
    const std::string& Error() const noexcept { return error_; }

private:
    struct Parser;
    const std::unique_ptr<Parser> parser_;
    std::string error_;
};

}  // namespace zel
