#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace zel {

// Writes JSON to the end of a text, which it does not own. Commas are set by themselves; what is
// put in is else written as it comes, so the caller opens and closes in pairs and gives each value
// of an object its key. Texts must be UTF-8. For one thread.
class RecordWriter {
public:
    explicit RecordWriter(std::string* out) : out_(*out) {}

    RecordWriter& Key(std::string_view key);
    RecordWriter& BeginObject() { return Begin('{'); }
    RecordWriter& EndObject() { return End('}'); }
    RecordWriter& BeginArray() { return Begin('['); }
    RecordWriter& EndArray() { return End(']'); }

    RecordWriter& Text(std::string_view utf8);
    RecordWriter& Number(std::uint64_t number);
    // `json` is one good value.
    RecordWriter& Json(std::string_view json);

    // {"value":["..."]} and {"value":[1]}: how records hold most facts.
    RecordWriter& TextPair(std::string_view utf8);
    RecordWriter& NumberPair(std::uint64_t number);

private:
    RecordWriter& Begin(char bracket);
    RecordWriter& End(char bracket);
    void Comma();

    std::string& out_;
    bool needsComma_ = false;
};

// Appends the text as a JSON string, with its quotes, as wm::JsonString would write it.
void AppendJsonString(std::string_view utf8, std::string* out);

}  // namespace zel
