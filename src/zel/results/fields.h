#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "records/recordreader.h"
#include "zel/results/eventsink.h"
#include "zel/results/zonetime.h"

namespace zel {

// What of an event is shown: a column (records/columns.h), the enrichments, or a place in its text.
struct Field {
    std::string name;                  // as it was asked for, and as it is headed
    const Column* column = nullptr;    // null: by its pointer
    std::vector<std::string> pointer;  // the steps of a JSON pointer
    ColumnType type = ColumnType::json;

    // A column that its name can only have by the key.
    bool IsKey() const noexcept { return column != nullptr && column->name == "key"; }
    // Likewise that of a fleet.
    bool IsHost() const noexcept { return column != nullptr && column->name == "host"; }
    bool IsEnrichments() const noexcept { return column == nullptr && name == "enrichments"; }
};

// "time,action,/artifacts/target/path/value/0": columns, `enrichments`, and JSON pointers. None,
// with words in `problem`, when one of them is nothing of that.
std::optional<std::vector<Field>> ParseFields(std::string_view list, std::string* problem);
// All columns, but for the whole event; the host, which then comes first, the key and the
// enrichments where they are there.
struct BesideEvents {
    bool hosts = false, keys = false, enrichments = false;
};
std::vector<Field> AllFields(BesideEvents beside);

struct FieldValue {
    enum class Kind : std::uint8_t { none, text, number, json };
    Kind kind = Kind::none;
    std::string text;  // UTF-8; of a number or JSON as it stood
};

// Reads the fields of one event after the other. For one thread.
class FieldReader {
public:
    FieldReader(std::vector<Field> fields, ZoneTime zone);

    const std::vector<Field>& Fields() const noexcept { return fields_; }
    // One value for each field; times in the zone. Of a text that is no JSON all are none, but for
    // what comes beside it. Good until the next call.
    const std::vector<FieldValue>& Read(const FoundEvent& event);

private:
    FieldValue ValueOf(const Field& field, const FoundEvent& event, bool isRead);
    void ReadPointers(std::string_view text);

    const std::vector<Field> fields_;
    const ZoneTime zone_;
    bool hasPointers_ = false;
    RecordReader reader_;
    std::vector<FieldValue> values_;
};

}  // namespace zel
