#include "records/formats/ocsftable.h"

#include <algorithm>

// The order of the rows counts twice. Reading takes the first row that fits, so what asks more
// stands ahead. Writing takes the first row of an object and its action, so the activity that says
// it best stands ahead. A condition on an attribute is what the writer puts there.

namespace zel {

namespace {

using enum Conversion;

constexpr std::string_view correlation = "metadata.correlation_uid";

constexpr Member actor[] = {
    {"path", text, "actor.process.file.path|actor.process.path|actor.process.name"},
    {"md5", text, "actor.process.file.hashes.MD5"},
    {"sha2", text, "actor.process.file.hashes.SHA-256"},
    {"cmd_line", text, "actor.process.cmd_line"},
    {"session_id", low32, "actor.process.session.uid"},
    {"pid", number, "actor.process.pid"},
    {"uid", guid, "actor.process.uid"}};
constexpr Member process[] = {{"path", text, "process.file.path|process.path|process.name"},
                              {"md5", text, "process.file.hashes.MD5"},
                              {"sha2", text, "process.file.hashes.SHA-256"},
                              {"cmd_line", text, "process.cmd_line"},
                              {"session_id", low32, "process.session.uid"},
                              {"pid", number, "process.pid"},
                              {"uid", guid, "process.uid"}};
constexpr Member file[] = {{"path", text, "file.path"},
                           {"md5", text, "file.hashes.MD5"},
                           {"sha2", text, "file.hashes.SHA-256"}};
constexpr Member newFile[] = {{"path", text, "file_result.path"},
                              {"md5", text, "file_result.hashes.MD5"},
                              {"sha2", text, "file_result.hashes.SHA-256"}};
constexpr Member folder[] = {{"path", text, "file.path"}};
constexpr Member newFolder[] = {{"path", text, "file_result.path"}};
constexpr Member module[] = {{"path", text, "module.file.path"},
                             {"md5", text, "module.file.hashes.MD5"},
                             {"sha2", text, "module.file.hashes.SHA-256"}};
constexpr Member network[] = {{"dst_ip", text, "dst_endpoint.ip"},
                              {"src_ip", text, "src_endpoint.ip"},
                              {"url", text, "dst_endpoint.hostname|url.url_string"},
                              {"dst_port", number, "dst_endpoint.port"},
                              {"src_port", number, "src_endpoint.port"},
                              {"protocol_id", number, "connection_info.protocol_num"},
                              {"direction_id", number, "connection_info.direction_id"}};
constexpr Member query[] = {{"text", text, "query.hostname"}};
constexpr Member loggedOn[] = {{"id", low32, "session.uid"},
                               {"user_name", plainText, "user.name"},
                               {"user_domain", plainText, "user.domain"},
                               {"user_sid", plainText, "user.uid"},
                               {"session_state", constant, R"(["logged-on"])"}};
constexpr Member loggedOff[] = {{"id", low32, "session.uid"},
                                {"user_name", plainText, "user.name"},
                                {"user_domain", plainText, "user.domain"},
                                {"user_sid", plainText, "user.uid"},
                                {"session_state", constant, R"(["logged-off"])"}};
constexpr Member session[] = {{"id", low32, "session.uid"},
                              {"user_name", plainText, "user.name"},
                              {"user_domain", plainText, "user.domain"},
                              {"user_sid", plainText, "user.uid"}};
constexpr Member key[] = {{"path", registryPath, "reg_key.path"}};
constexpr Member oldKey[] = {{"path", registryPath, "prev_reg_key.path"}};
constexpr Member value[] = {{"path", registryPath, "reg_value.path+reg_value.name"},
                            {"name", text, "reg_value.name"},
                            {"type_id", registryType, "reg_value.type"},
                            {"data", text,
                             "reg_value.data|reg_value.reg_string_data|"
                             "reg_value.reg_string_list_data|reg_value.reg_integer_data|"
                             "reg_value.reg_binary_data"}};
constexpr Member oldValue[] = {{"path", registryPath, "prev_reg_value.path+prev_reg_value.name"},
                               {"name", text, "prev_reg_value.name"}};

constexpr Condition isFolder[] = {{"file.type_id", Is, "2"}};
constexpr Condition isInbound[] = {{"connection_info.direction_id", Is, "1"}};
constexpr Condition hadKey[] = {{"prev_reg_key.path", IsThere, {}}};
constexpr Condition hadValue[] = {{"prev_reg_value.path", IsThere, {}}};

constexpr std::string_view processNeeds =
    "process.file.path|process.path|process.name|process.cmd_line|process.uid";
constexpr std::string_view networkNeeds = "dst_endpoint.ip|src_endpoint.ip|dst_endpoint.hostname";

// type_uid, conditions, object type, action, needed, correlation, actor, target, result
constexpr MappingRow rows[] = {
    {{100701}, {}, "process", "launch", processNeeds, correlation, actor, process, {}},
    {{100702}, {}, "process", "terminate", processNeeds, correlation, actor, process, {}},
    {{100703}, {}, "process", "open", processNeeds, correlation, actor, process, {}},
    {{100704}, {}, "process", "injection", processNeeds, correlation, actor, process, {}},
    {{100705}, {}, "process", "modify", processNeeds, correlation, actor, process, {}},
    {{100799, 100700}, {}, "process", "generic", processNeeds, correlation, actor, process, {}},

    {{100101}, isFolder, "directory", "create", "file.path", correlation, actor, folder, {}},
    {{100102}, isFolder, "directory", "open", "file.path", correlation, actor, folder, {}},
    {{100114}, isFolder, "directory", "open", "file.path", correlation, actor, folder, {}},
    {{100103}, isFolder, "directory", "modify", "file.path", correlation, actor, folder, {}},
    {{100104}, isFolder, "directory", "delete", "file.path", correlation, actor, folder, {}},
    {{100105}, isFolder, "directory", "rename", "file.path", correlation, actor, folder, newFolder},
    {{100106},
     isFolder,
     "directory",
     "set_attributes",
     "file.path",
     correlation,
     actor,
     folder,
     {}},
    {{100107}, isFolder, "directory", "set_security", "file.path", correlation, actor, folder, {}},
    {{100199, 100100},
     isFolder,
     "directory",
     "generic",
     "file.path",
     correlation,
     actor,
     folder,
     {}},
    {{100101}, {}, "file", "create", "file.path", correlation, actor, file, {}},
    {{100102}, {}, "file", "open", "file.path", correlation, actor, file, {}},
    {{100114}, {}, "file", "open", "file.path", correlation, actor, file, {}},
    {{100103}, {}, "file", "modify", "file.path", correlation, actor, file, {}},
    {{100104}, {}, "file", "delete", "file.path", correlation, actor, file, {}},
    {{100105}, {}, "file", "rename", "file.path", correlation, actor, file, newFile},
    {{100106}, {}, "file", "set_attributes", "file.path", correlation, actor, file, {}},
    {{100107}, {}, "file", "set_security", "file.path", correlation, actor, file, {}},
    {{100110}, {}, "file", "encrypt", "file.path", correlation, actor, file, {}},
    {{100111}, {}, "file", "decrypt", "file.path", correlation, actor, file, {}},
    {{100199, 100100}, {}, "file", "generic", "file.path", correlation, actor, file, {}},
    {{100108, 100109}, {}, "file", "generic", "file.path", correlation, actor, file, {}},
    {{100112, 100113}, {}, "file", "generic", "file.path", correlation, actor, file, {}},

    {{100501}, {}, "module", "load", "module.file.path", correlation, actor, module, {}},
    {{100502}, {}, "module", "unload", "module.file.path", correlation, actor, module, {}},
    {{100599, 100500}, {}, "module", "generic", "module.file.path", correlation, actor, module, {}},
    {{100503}, {}, "module", "generic", "module.file.path", correlation, actor, module, {}},

    {{400101}, isInbound, "network", "accept", networkNeeds, correlation, actor, network, {}},
    {{400101}, {}, "network", "connect", networkNeeds, correlation, actor, network, {}},
    {{400102, 400103}, {}, "network", "close", networkNeeds, correlation, actor, network, {}},
    {{400106}, {}, "network", "statistic", networkNeeds, correlation, actor, network, {}},
    {{400199, 400100}, {}, "network", "generic", networkNeeds, correlation, actor, network, {}},
    {{400104, 400105}, {}, "network", "generic", networkNeeds, correlation, actor, network, {}},
    {{400107}, {}, "network", "generic", networkNeeds, correlation, actor, network, {}},

    {{400301, 400302}, {}, "url", "request", "query.hostname", correlation, actor, query, {}},
    {{400306}, {}, "url", "request", "query.hostname", correlation, actor, query, {}},
    {{400399, 400300}, {}, "url", "generic", "query.hostname", correlation, actor, query, {}},

    {{300201}, {}, "session", "logon", {}, correlation, actor, loggedOn, {}},
    {{300202}, {}, "session", "logoff", {}, correlation, actor, loggedOff, {}},
    {{300299, 300200}, {}, "session", "generic", {}, correlation, actor, session, {}},
    {{300203, 300204}, {}, "session", "generic", {}, correlation, actor, session, {}},
    {{300205, 300206}, {}, "session", "generic", {}, correlation, actor, session, {}},

    {{20100101}, {}, "reg_key", "create", "reg_key.path", correlation, actor, key, {}},
    {{20100102}, {}, "reg_key", "open", "reg_key.path", correlation, actor, key, {}},
    {{20100103}, {}, "reg_key", "modify", "reg_key.path", correlation, actor, key, {}},
    {{20100104}, {}, "reg_key", "delete", "reg_key.path", correlation, actor, key, {}},
    {{20100105}, hadKey, "reg_key", "rename", {}, correlation, actor, oldKey, key},
    {{20100105}, {}, "reg_key", "rename", "reg_key.path", correlation, actor, key, {}},
    {{20100106}, {}, "reg_key", "set_security", "reg_key.path", correlation, actor, key, {}},
    {{20100107}, {}, "reg_key", "restore", "reg_key.path", correlation, actor, key, {}},
    {{20100199, 20100100}, {}, "reg_key", "generic", "reg_key.path", correlation, actor, key, {}},
    {{20100108, 20100109}, {}, "reg_key", "generic", "reg_key.path", correlation, actor, key, {}},

    {{20100202}, {}, "reg_value", "set", "reg_value.path", correlation, actor, value, {}},
    {{20100201}, {}, "reg_value", "open", "reg_value.path", correlation, actor, value, {}},
    {{20100203}, hadValue, "reg_value", "rename", {}, correlation, actor, oldValue, value},
    {{20100203}, {}, "reg_value", "modify", "reg_value.path", correlation, actor, value, {}},
    {{20100204}, {}, "reg_value", "delete", "reg_value.path", correlation, actor, value, {}},
    {{20100299, 20100200},
     {},
     "reg_value",
     "generic",
     "reg_value.path",
     correlation,
     actor,
     value,
     {}},
};

constexpr OcsfClass classes[] = {
    {"File System Activity", 1001, 1},    {"Module Activity", 1005, 1},
    {"Process Activity", 1007, 1},        {"Authentication", 3002, 3},
    {"Network Activity", 4001, 4},        {"DNS Activity", 4003, 4},
    {"Registry Key Activity", 201001, 1}, {"Registry Value Activity", 201002, 1},
};

constexpr std::string_view actions[] = {
    "unknown",   "create",    "delete",    "open",    "rename",  "modify",    "set_attributes",
    "encrypt",   "decrypt",   "close",     "restore", "set",     "launch",    "set_security",
    "terminate", "injection", "load",      "unload",  "logon",   "logoff",    "connect",
    "accept",    "request",   "statistic", "scan",    "generic", "enumerate", "reputation_query"};

constexpr OcsfRegistryType registryTypes[] = {
    {"REG_NONE", 0, 7},   {"REG_SZ", 1, 10},      {"REG_EXPAND_SZ", 2, 4},
    {"REG_BINARY", 3, 1}, {"REG_DWORD", 4, 2},    {"REG_DWORD_BIG_ENDIAN", 5, 3},
    {"REG_LINK", 6, 5},   {"REG_MULTI_SZ", 7, 6}, {"REG_QWORD", 11, 8},
    {"REG_QWORD", 11, 9},
};

}  // namespace

const MappingTable ocsfTable{rows, {}, false};

std::span<const OcsfClass> OcsfClasses() {
    return classes;
}

const MappingRow* OcsfRowFor(std::string_view objectType, std::string_view action) {
    const MappingRow* other = nullptr;
    for (const MappingRow& row : rows) {
        if (row.objectType != objectType)
            continue;
        if (row.action == action)
            return &row;
        if (ActivityOf(row.events[0]) == otherActivity)
            other = &row;
    }
    return other;
}

std::string_view OcsfActionNamed(std::string_view name) {
    const auto* const found = std::find(std::begin(actions), std::end(actions), name);
    return found == std::end(actions) ? std::string_view{} : *found;
}

std::span<const OcsfRegistryType> OcsfRegistryTypes() {
    return registryTypes;
}

}  // namespace zel
