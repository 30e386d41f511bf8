#include "records/formats/osquerytable.h"

#include <algorithm>
#include <array>

// A row does not say which table it is of: the log has the name of the query alone, which people
// often make of the table's, and a query may choose its columns.

namespace zel {

namespace {

using enum Conversion;

constexpr std::string_view table = osqueryTableName;

// A system call's result: 0 or a descriptor, or an error as a negative number. A connect that is
// under way has not failed.
bool IsError(std::string_view result, std::string_view) {
    return result.starts_with('-') && result != "-115";
}

constexpr Condition isProcess{table, Is, "process_events"};
constexpr Condition isBpfProcess{table, Is, "bpf_process_events"};
constexpr Condition isMacProcess{table, Is, "es_process_events"};
constexpr Condition isEtwProcess{table, Is, "process_etw_events"};
constexpr Condition isFile{table, Is, "file_events"};
constexpr Condition isProcessFile{table, Is, "process_file_events"};
constexpr Condition isMacFile{table, Is, "es_process_file_events"};
constexpr Condition isJournal{table, Is, "ntfs_journal_events"};
constexpr Condition isSocket{table, Is, "socket_events|bpf_socket_events"};
constexpr Condition isUser{table, Is, "user_events"};

// Processes.
constexpr Condition process[] = {isProcess};
constexpr Condition bpfFailed[] = {isBpfProcess, {"exit_code", IsError, {}}};
constexpr Condition bpfProcess[] = {isBpfProcess};
constexpr Condition macExec[] = {isMacProcess, {"event_type", IsNoCase, "exec"}};
constexpr Condition macFork[] = {isMacProcess, {"event_type", IsNoCase, "fork"}};
constexpr Condition macExit[] = {isMacProcess, {"event_type", IsNoCase, "exit"}};
constexpr Condition macOther[] = {isMacProcess};
constexpr Condition etwStart[] = {isEtwProcess, {"type", HasNoCase, "start"}};
constexpr Condition etwStop[] = {isEtwProcess, {"type", HasNoCase, "stop"}};

constexpr Member parent[] = {{"pid", number, "parent|ppid"}};
constexpr Member launched[] = {{"path", text, "path"},
                               {"cmd_line", text, "cmdline"},
                               {"session_id", number, "session_id"},
                               {"pid", number, "pid"}};
constexpr Member self[] = {{"path", text, "path"}, {"pid", number, "pid"}};
constexpr Member child[] = {{"path", text, "path"}, {"pid", number, "child_pid"}};

// Files.
constexpr Condition fileCreated[] = {isFile, {"action", IsNoCase, "CREATED"}};
constexpr Condition fileUpdated[] = {isFile, {"action", IsNoCase, "UPDATED"}};
constexpr Condition fileDeleted[] = {isFile, {"action", IsNoCase, "DELETED"}};
constexpr Condition fileMoved[] = {isFile, {"action", HasNoCase, "MOVED"}};
constexpr Condition fileAttributes[] = {isFile, {"action", HasNoCase, "ATTRIBUTES"}};
constexpr Condition fileOpened[] = {isFile, {"action", IsNoCase, "OPENED|ACCESSED"}};
constexpr Condition fileOther[] = {isFile};
constexpr std::string_view operation = "operation|event_type|action";
constexpr Condition opCreates[] = {{operation, HasNoCase, "creat"}};
constexpr Condition opRenames[] = {{operation, HasNoCase, "rename"}};
constexpr Condition opDeletes[] = {{operation, HasNoCase, "unlink|delet|remove"}};
constexpr Condition opWrites[] = {{operation, HasNoCase, "write|truncat|overwrite|extend"}};
constexpr Condition opOpens[] = {{operation, HasNoCase, "open|read|access"}};
constexpr Condition opCloses[] = {{operation, IsNoCase, "close"}};

constexpr Member watched[] = {
    {"path", text, "target_path"}, {"md5", text, "md5"}, {"sha2", text, "sha256"}};
constexpr Member executable[] = {{"path", text, "executable"}, {"pid", number, "pid"}};
constexpr Member path[] = {{"path", text, "path"}};
constexpr Member newPath[] = {{"path", text, "dest_path"}};
constexpr Member oldPath[] = {{"path", text, "old_path"}};
constexpr Member filename[] = {{"path", text, "filename"}};
constexpr Member newFilename[] = {{"path", text, "dest_filename"}};

// Sockets.
constexpr Condition hasAddress{"remote_address|local_address", IsThere, {}};
constexpr Condition hasSocket{"socket", IsThere, {}};
constexpr std::string_view call = "action|syscall";
constexpr Condition socketFailed[] = {isSocket, hasAddress, {"status", IsNoCase, "failed"}};
constexpr Condition bpfSocketFailed[] = {isSocket, hasAddress, {"exit_code", IsError, {}}};
constexpr Condition connects[] = {isSocket, hasAddress, {call, IsNoCase, "connect"}};
constexpr Condition accepts[] = {isSocket, hasAddress, {call, IsNoCase, "accept|accept4"}};
constexpr Condition closes[] = {isSocket, hasAddress, {call, IsNoCase, "close"}};
constexpr Condition socketOther[] = {isSocket, hasAddress};
constexpr Condition connectsLocal[] = {
    isSocket, hasSocket, {call, IsNoCase, "connect"}, {"status", IsNot, "failed"}};
constexpr Condition localOther[] = {isSocket, hasSocket};

constexpr Member outgoing[] = {
    {"dst_ip", text, "remote_address"},  {"src_ip", text, "local_address"},
    {"dst_port", number, "remote_port"}, {"src_port", number, "local_port"},
    {"protocol_id", number, "protocol"}, {"direction_id", constant, R"({"value":[2]})"}};
constexpr Member incoming[] = {
    {"dst_ip", text, "local_address"},   {"src_ip", text, "remote_address"},
    {"dst_port", number, "local_port"},  {"src_port", number, "remote_port"},
    {"protocol_id", number, "protocol"}, {"direction_id", constant, R"({"value":[1]})"}};
constexpr Member either[] = {{"dst_ip", text, "remote_address"},
                             {"src_ip", text, "local_address"},
                             {"dst_port", number, "remote_port"},
                             {"src_port", number, "local_port"},
                             {"protocol_id", number, "protocol"}};
constexpr Member localSocket[] = {{"name", text, "socket"}};

constexpr auto In(const Condition& which, const Condition (&what)[1]) {
    return std::array<Condition, 2>{which, what[0]};
}
constexpr auto processCreates = In(isProcessFile, opCreates);
constexpr auto processRenames = In(isProcessFile, opRenames);
constexpr auto processDeletes = In(isProcessFile, opDeletes);
constexpr auto processWrites = In(isProcessFile, opWrites);
constexpr auto processOpens = In(isProcessFile, opOpens);
constexpr Condition processFile[] = {isProcessFile};
constexpr auto macCreates = In(isMacFile, opCreates);
constexpr auto macRenames = In(isMacFile, opRenames);
constexpr auto macDeletes = In(isMacFile, opDeletes);
constexpr auto macWrites = In(isMacFile, opWrites);
constexpr auto macOpens = In(isMacFile, opOpens);
constexpr auto macCloses = In(isMacFile, opCloses);
constexpr Condition macFile[] = {isMacFile};
constexpr auto journalCreates = In(isJournal, opCreates);
constexpr auto journalRenames = In(isJournal, opRenames);
constexpr auto journalDeletes = In(isJournal, opDeletes);
constexpr auto journalWrites = In(isJournal, opWrites);
constexpr Condition journal[] = {isJournal};

// Users: the numbers are those of the audit lines.
constexpr Condition userLogin[] = {isUser, {"type", Is, "1112"}};
constexpr Condition userLogout[] = {isUser, {"type", Is, "1113"}};
constexpr Member userActor[] = {{"path", text, "path"}, {"pid", number, "pid"}};
constexpr Member loggedOff[] = {{"user_name", plainText, "auid"},
                                {"session_state", constant, R"(["logged-off"])"}};
constexpr Member someUser[] = {{"user_name", plainText, "auid"}};

// events, conditions, object type, action, needed, correlation, actor, target, result
constexpr MappingRow rows[] = {
    {{}, process, "process", "launch", "path|cmdline", {}, parent, launched, {}},
    {{}, bpfFailed, "process", "generic", "path|cmdline", {}, parent, launched, {}},
    {{}, bpfProcess, "process", "launch", "path|cmdline", {}, parent, launched, {}},
    {{}, macExec, "process", "launch", "path", {}, parent, launched, {}},
    {{}, macFork, "process", "launch", "path,child_pid", {}, self, child, {}},
    {{}, macExit, "process", "terminate", "path", {}, self, launched, {}},
    {{}, macOther, "process", "generic", "path", {}, self, launched, {}},
    {{}, etwStart, "process", "launch", "path|cmdline", {}, parent, launched, {}},
    {{}, etwStop, "process", "terminate", "path", {}, self, launched, {}},

    {{}, fileCreated, "file", "create", "target_path", {}, {}, watched, {}},
    {{}, fileUpdated, "file", "modify", "target_path", {}, {}, watched, {}},
    {{}, fileDeleted, "file", "delete", "target_path", {}, {}, watched, {}},
    {{}, fileMoved, "file", "rename", "target_path", {}, {}, watched, {}},
    {{}, fileAttributes, "file", "set_attributes", "target_path", {}, {}, watched, {}},
    {{}, fileOpened, "file", "open", "target_path", {}, {}, watched, {}},
    {{}, fileOther, "file", "generic", "target_path", {}, {}, watched, {}},

    {{}, processCreates, "file", "create", "path", {}, executable, path, {}},
    {{}, processRenames, "file", "rename", "path", {}, executable, path, newPath},
    {{}, processDeletes, "file", "delete", "path", {}, executable, path, {}},
    {{}, processWrites, "file", "modify", "path", {}, executable, path, {}},
    {{}, processOpens, "file", "open", "path", {}, executable, path, {}},
    {{}, processFile, "file", "generic", "path", {}, executable, path, {}},

    {{}, macCreates, "file", "create", "filename", {}, self, filename, {}},
    {{}, macRenames, "file", "rename", "filename", {}, self, filename, newFilename},
    {{}, macDeletes, "file", "delete", "filename", {}, self, filename, {}},
    {{}, macWrites, "file", "modify", "filename", {}, self, filename, {}},
    {{}, macOpens, "file", "open", "filename", {}, self, filename, {}},
    {{}, macCloses, "file", "close", "filename", {}, self, filename, {}},
    {{}, macFile, "file", "generic", "filename", {}, self, filename, {}},

    {{}, journalRenames, "file", "rename", "path,old_path", {}, {}, oldPath, path},
    {{}, journalCreates, "file", "create", "path", {}, {}, path, {}},
    {{}, journalDeletes, "file", "delete", "path", {}, {}, path, {}},
    {{}, journalWrites, "file", "modify", "path", {}, {}, path, {}},
    {{}, journal, "file", "generic", "path", {}, {}, path, {}},

    {{}, socketFailed, "network", "generic", {}, {}, self, either, {}},
    {{}, bpfSocketFailed, "network", "generic", {}, {}, self, either, {}},
    {{}, connects, "network", "connect", {}, {}, self, outgoing, {}},
    {{}, accepts, "network", "accept", {}, {}, self, incoming, {}},
    {{}, closes, "network", "close", {}, {}, self, either, {}},
    {{}, socketOther, "network", "generic", {}, {}, self, either, {}},
    {{}, connectsLocal, "kernel_object", "connect", {}, {}, self, localSocket, {}},
    {{}, localOther, "kernel_object", "generic", {}, {}, self, localSocket, {}},

    {{}, userLogin, "session", "generic", {}, {}, userActor, someUser, {}},
    {{}, userLogout, "session", "logoff", {}, {}, userActor, loggedOff, {}},
};

// The tables, longest names first where one holds another, and columns that only the one has.
struct KnownTable {
    std::string_view name;
    std::string_view columns;  // "a,b": all of them
};
constexpr KnownTable tables[] = {
    {"es_process_file_events", "filename,event_type"},
    {"process_file_events", "operation,executable"},
    {"bpf_process_events", "ntime,cmdline"},
    {"bpf_socket_events", "ntime,remote_address"},
    {"es_process_events", "event_type,path"},
    {"process_etw_events", "token_elevation_type"},
    {"ntfs_journal_events", "record_usn"},
    {"socket_events", "remote_address,action"},
    {"process_events", "path,cmdline,syscall"},
    {"process_events", "path,cmdline,uptime"},
    {"process_events", "path,cmdline,time"},
    {"user_events", "message,terminal"},
    {"file_events", "target_path,action"},
};

bool HasAll(std::string_view columns, SourceFields& fields) {
    while (!columns.empty()) {
        const std::size_t comma = std::min(columns.find(','), columns.size());
        if (fields.Find(columns.substr(0, comma)) == nullptr)
            return false;
        columns.remove_prefix(std::min(comma + 1, columns.size()));
    }
    return true;
}

}  // namespace

const MappingTable osqueryTable{rows, {}, false};

std::string_view OsqueryTableOf(std::string_view query, SourceFields& fields) {
    for (const KnownTable& known : tables) {
        if (HasNoCase(query, known.name))
            return known.name;
    }
    for (const KnownTable& known : tables) {
        if (HasAll(known.columns, fields))
            return known.name;
    }
    return {};
}

}  // namespace zel
