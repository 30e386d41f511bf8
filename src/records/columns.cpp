#include "records/columns.h"

#include <algorithm>

// A name here is what people type: once it is out it is never given another meaning. Where sources
// keep a thing under several names the most telling one comes first.

namespace zel {

namespace {

using enum ColumnType;
using From = ColumnFrom;

// name, type, from, unit, the key's field, place in the text, meaning
constexpr Column columns[] = {
    {"time", time, From::key, "", "begin_time", "begin_time.value", "when it happened, UTC"},
    {"seq", number, From::key, "", "sequence", "seq_num",
     "the source's number of the record, or the order of arrival"},
    {"object", text, From::key, "", "object_type", "artifacts.target.object_type",
     "what kind of thing it was done to"},
    {"action", text, From::key, "", "action", "action", "what was done"},
    {"actor_path", text, From::key, "", "actor_path_name", "artifacts.actor.path.value",
     "the program that did it"},
    {"actor_hash", text, From::key, "", "actor_hash", "artifacts.actor.sha2.value",
     "SHA-256 of that program"},
    {"actor_uid", text, From::key, "", "actor_uid", "artifacts.actor.uid.value",
     "the source's identifier of the process"},
    {"actor_pid", number, From::text, "", "", "artifacts.actor.pid.value",
     "the system's number of the process"},
    {"actor_cmd_line", text, From::text, "", "", "artifacts.actor.cmd_line.value",
     "its command line"},
    {"user", text, From::text, "", "",
     "artifacts.target.user_name|unmapped.User|unmapped.SubjectUserName|unmapped.user.name|"
     "unmapped.actor.user.name|unmapped.AccountName|unmapped.acct|unmapped.username|"
     "unmapped.SYSCALL.UID|unmapped.SYSCALL.uid|unmapped.auid",
     "whose process it was, or who logged on"},
    {"target_path", text, From::key, "", "target_path_name", "artifacts.target.path.value",
     "the file, program, module or registry key it was done to"},
    {"target_name", text, From::text, "", "", "artifacts.target.name.value",
     "the name of a registry value, a pipe, a device or a service"},
    {"target_hash", text, From::key, "", "target_hash", "artifacts.target.sha2.value",
     "SHA-256 of the target"},
    {"target_uid", text, From::text, "", "", "artifacts.target.uid.value",
     "the source's identifier of a target process"},
    {"target_pid", number, From::text, "", "", "artifacts.target.pid.value",
     "the system's number of a target process"},
    {"target_cmd_line", text, From::text, "", "", "artifacts.target.cmd_line.value",
     "the command line of a target process"},
    {"src_ip", text, From::key, "", "target_source_ip", "artifacts.target.src_ip.value",
     "where a connection comes from"},
    {"src_port", number, From::text, "", "", "artifacts.target.src_port.value", "the port there"},
    {"dst_ip", text, From::key, "", "target_destination_ip", "artifacts.target.dst_ip.value",
     "where a connection goes to"},
    {"dst_port", number, From::text, "", "", "artifacts.target.dst_port.value", "the port there"},
    {"protocol", number, From::text, "", "", "artifacts.target.protocol_id.value",
     "the number of the protocol: 6 is TCP, 17 is UDP"},
    {"url", text, From::text, "", "", "artifacts.target.text.value|artifacts.target.url.value",
     "the name that was asked for, or that of the other host"},
    {"reg_data", text, From::text, "", "", "artifacts.target.data.value",
     "what a registry value was set to"},
    {"type_id", number, From::key, "", "type_id", "type_id.value",
     "the number of the kind of event"},
    {"correlation_uid", text, From::key, "", "correlation_uid", "correlation_uid.value",
     "what events of one cause share; in upper case in the key"},
    {"computer", text, From::text, "", "", "source.computer", "the machine it happened on"},
    {"source", text, From::text, "", "", "source.channel|source.format+source.event_id",
     "channel or table, and number of the source event"},
    {"key", text, From::beside, "", "", "", "the key of the event in the store"},
    {"event", json, From::text, "", "", "", "the whole record"},
    {"host", text, From::beside, "", "", "",
     "in a fleet, the machine whose store had the event; nothing in a store of one machine"},
};

}  // namespace

std::span<const Column> Columns() {
    return columns;
}

const Column* FindColumn(std::string_view name) {
    const auto found = std::find_if(std::begin(columns), std::end(columns),
                                    [&](const Column& column) { return column.name == name; });
    return found != std::end(columns) ? found : nullptr;
}

}  // namespace zel
