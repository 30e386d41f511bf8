#include "fleet/fleettable.h"

#include <algorithm>
#include <charconv>
#include <iterator>

#include "fleet/sqltext.h"
#include "zelstore/keys/typenumbers.h"

// How the tables lie.
//
// A column of events is a field of the key as the key splits: cut at <, lost with >. So a condition
// meets the same text here as in a store. Absent and empty differ for a condition, and an index can
// stand on no column that may be null; hence the bits of `present`.
//
// Rows lie by hour, host and time, which packs best and lets a question about an hour or a host
// pass over the rest. They are parted by the day of receipt: a row that is sent again has the same
// receipt and meets the first one, and a clock that goes wrong on a host makes no thousand parts.
// The hash of the key tells rows of one moment apart.
//
// That a row may stand there several times for a while is the table's nature; who asks makes them
// single.

namespace zel::fleet {

namespace {

using ZEL::KeyField;

constexpr std::string_view packed = "ZSTD(3)", packedSteps = "Delta, ZSTD(3)";
constexpr FleetColumn Field(KeyField field, std::uint16_t bit) {
    return {ZEL::KeyFieldName(field), "String", "", true, field, bit};
}

constexpr FleetColumn eventColumns[] = {
    {"host", "String", "", true, {}, 0},
    {"receive_ms", "UInt64", packedSteps, false, {}, 0},
    {"receive_no", "UInt32", packed, false, {}, 0},
    {"begin_time", "String", packed, false, KeyField::beginTime, 0},
    {"sequence", "UInt32", packedSteps, false, KeyField::sequence, 0},
    Field(KeyField::objectType, 0),
    Field(KeyField::action, 0),
    Field(KeyField::actorHash, 1),
    Field(KeyField::actorPathName, 2),
    Field(KeyField::targetHash, 4),
    Field(KeyField::targetPathName, 8),
    Field(KeyField::targetSourceIp, 16),
    Field(KeyField::targetDestinationIp, 32),
    Field(KeyField::correlationUid, 64),
    Field(KeyField::actorUid, 128),
    Field(KeyField::targetTypeId, 256),
    {"target_url_text", "String", packed, false, KeyField::targetUrlText, 512},
    {"present", "UInt16", packed, false, {}, 0},
    {"key", "String", packed, false, {}, 0},
    {"event", "String", packed, false, {}, 0},
};

constexpr FleetColumn enrichmentColumns[] = {
    {"host", "String", "", true, {}, 0},
    {"sent_ms", "UInt64", packedSteps, false, {}, 0},
    {"begin_time", "String", packed, false, {}, 0},
    {"base_key", "String", packed, false, {}, 0},
    {"key", "String", packed, false, {}, 0},
    {"live", "UInt8", packed, false, {}, 0},
    {"text", "String", packed, false, {}, 0},
};

const FleetColumn* ColumnWith(KeyField field) {
    const auto* const found =
        std::find_if(std::begin(eventColumns), std::end(eventColumns),
                     [&](const FleetColumn& column) { return column.field == field; });
    return found != std::end(eventColumns) ? found : nullptr;
}

// The two that no key holds: worked out from the object type, as a store does.
std::string WorkedOutColumns() {
    std::string names, numbers;
    for (const ZEL::TypeNumber& row : ZEL::typeNumbers) {
        if (row.objectType == "file")
            continue;
        names.append(names.empty() ? "" : ", ").append(SqlText(row.objectType));
        numbers.append(numbers.empty() ? "" : ", ").append(SqlText(row.number));
    }
    const std::string file = SqlText(ZEL::FindTypeNumber("file")->number);
    const std::string bit = std::to_string(PresentBitOf(KeyField::targetTypeId));
    return ",\n  type_id String ALIAS multiIf(object_type = 'file', "
           "if(action = 'reputation_query', '5', " +
           file + "), transform(toString(object_type), [" + names + "], [" + numbers +
           "], '')),\n  target_type String ALIAS if(bitAnd(present, " + bit +
           ") != 0, toString(target_type_id), if(object_type = 'kernel_object', '1', ''))";
}

constexpr std::string_view eventIndexes =
    ",\n  INDEX by_time begin_time TYPE minmax GRANULARITY 1"
    ",\n  INDEX by_actor_hash lower(actor_hash) TYPE bloom_filter(0.01) GRANULARITY 1"
    ",\n  INDEX by_target_hash lower(target_hash) TYPE bloom_filter(0.01) GRANULARITY 1"
    ",\n  INDEX by_correlation lower(correlation_uid) TYPE bloom_filter(0.01) GRANULARITY 1"
    ",\n  INDEX by_actor_path lower(actor_path_name) TYPE ngrambf_v1(4, 16384, 3, 0) GRANULARITY 1"
    ",\n  INDEX by_target_path lower(target_path_name) TYPE ngrambf_v1(4, 16384, 3, 0) "
    "GRANULARITY 1";
constexpr std::string_view enrichmentIndexes =
    ",\n  INDEX by_base base_key TYPE bloom_filter(0.01) GRANULARITY 1";

struct Table {
    std::string_view name;
    std::span<const FleetColumn> columns;
    std::string_view receipt;  // milliseconds: the version of a row, and what it is parted by
    std::string more;          // what follows the columns
    std::string_view moreIndexes;
    std::string_view order;
};

std::vector<Table> Tables() {
    return {{eventsTable, eventColumns, "receive_ms",
             WorkedOutColumns() + ",\n  uid UInt64 MATERIALIZED sipHash64(key)", eventIndexes,
             "(substring(begin_time, 1, 13), host, begin_time, sequence, uid)"},
            {enrichmentsTable, enrichmentColumns, "sent_ms", "", enrichmentIndexes,
             "(substring(begin_time, 1, 13), host, begin_time, key)"}};
}

std::string ColumnsText(const Table& table, bool isOld) {
    std::string text;
    for (const FleetColumn& column : table.columns) {
        text.append(text.empty() ? "" : ",").append("\n  ").append(column.name).append(" ");
        if (column.isRepeating && !isOld)
            text.append("LowCardinality(").append(column.type).append(")");
        else
            text.append(column.type);
        if (!column.codec.empty() && !isOld)
            text.append(" CODEC(").append(column.codec).append(")");
    }
    text += table.more;
    if (!isOld)
        text += table.moreIndexes;
    return text;
}

std::string EngineOf(const Table& table, const FleetTableForm& form) {
    const std::string version(table.receipt);
    if (form.cluster.empty())
        return "ReplacingMergeTree(" + version + ")";
    // Older servers know no {database}.
    return "ReplicatedReplacingMergeTree('/clickhouse/tables/{shard}/" +
           std::string(form.isOld ? "" : "{database}/") + std::string(table.name) +
           "', '{replica}', " + version + ")";
}

std::string StoringStatement(const Table& table, const FleetTableForm& form) {
    const bool isCluster = !form.cluster.empty();
    const std::string day = "toDateTime(intDiv(" + std::string(table.receipt) + ", 1000), 'UTC')";
    std::string sql = "CREATE TABLE IF NOT EXISTS " + std::string(table.name);
    if (isCluster)
        sql += "_local ON CLUSTER " + SqlText(form.cluster);
    sql += " (" + ColumnsText(table, form.isOld) + "\n) ENGINE = " + EngineOf(table, form) +
           "\nPARTITION BY toYYYYMMDD(" + day + ")\nORDER BY " + std::string(table.order);
    if (!form.isOld && form.retentionDays != 0)
        sql += "\nTTL " + day + " + INTERVAL " + std::to_string(form.retentionDays) +
               " DAY\nSETTINGS ttl_only_drop_parts = 1";
    return sql;
}

// All rows of a host lie on one node and its copies, so that merges meet those that were sent
// twice.
std::string SpreadingStatement(const Table& table, const FleetTableForm& form) {
    const std::string name(table.name), cluster = SqlText(form.cluster);
    return "CREATE TABLE IF NOT EXISTS " + name + " ON CLUSTER " + cluster + " AS " + name +
           "_local ENGINE = Distributed(" + cluster + ", currentDatabase(), " + name +
           "_local, sipHash64(host))";
}

}  // namespace

std::span<const FleetColumn> EventColumns() {
    return eventColumns;
}
std::span<const FleetColumn> EnrichmentColumns() {
    return enrichmentColumns;
}

std::string_view ColumnOf(KeyField field) {
    if (field == KeyField::typeId)
        return "type_id";
    if (field == KeyField::targetTypeId)
        return "target_type";
    const FleetColumn* const column = ColumnWith(field);
    return column != nullptr ? column->name : "";
}

std::uint16_t PresentBitOf(KeyField field) {
    const FleetColumn* const column = ColumnWith(field);
    return column != nullptr ? column->presentBit : 0;
}

bool IsOldServer(std::string_view version) {
    constexpr unsigned firstNew = 20;
    unsigned major = 0;
    std::from_chars(version.data(), version.data() + version.size(), major);
    return major != 0 && major < firstNew;
}

std::vector<std::string> TableStatements(const FleetTableForm& form) {
    std::vector<std::string> statements;
    for (const Table& table : Tables()) {
        statements.push_back(StoringStatement(table, form));
        if (!form.cluster.empty())
            statements.push_back(SpreadingStatement(table, form));
    }
    return statements;
}

}  // namespace zel::fleet
