#include "records/formats/ecstable.h"

#include <array>
#include <cstddef>

// The schema names what an event is about by event.category and what has happened by event.type,
// both of which may hold several words. Senders say more in event.action, in words of their own;
// these are asked where the type doesn't tell enough. What failed becomes `generic`, so that nobody
// who asks who has deleted a file is told of one who wanted to.
//
// The names of Sysmon's own fields stand beside those of the schema where its module has left them
// in winlog.event_data, for want of a place in the schema.

namespace zel {

namespace {

using enum Conversion;

constexpr std::string_view category = "event.category";
constexpr std::string_view type = "event.type";
constexpr std::string_view action = "event.action";
constexpr std::string_view sysmonType = "winlog.event_data.EventType";

constexpr Condition failed{"event.outcome", IsNoCase, "failure|fail"};
constexpr Condition ofProcess{category, IsNoCase, "process"};
constexpr Condition ofFile{category, IsNoCase, "file"};
constexpr Condition ofRegistry{category, IsNoCase, "registry"};
constexpr Condition ofNetwork{category, IsNoCase, "network"};
constexpr Condition ofModule{category, IsNoCase, "library|driver|process"};
constexpr Condition ofSession{category, IsNoCase, "authentication|session"};
constexpr Condition hasValue{"registry.value", IsThere, {}};
constexpr Condition isStart{type, IsNoCase, "start"};
constexpr Condition isEnd{type, IsNoCase, "end"};
constexpr Condition isFolder{"file.type", IsNoCase, "dir|directory|folder"};

// What the module for Sysmon tells by its number alone.
constexpr Condition isSysmon{"event.provider|winlog.provider_name|event.module", HasNoCase,
                             "sysmon"};
constexpr std::string_view code = "event.code|winlog.event_id";
constexpr Condition sysmonLoads[] = {isSysmon, {code, Is, "6|7"}};
constexpr Condition sysmonMakesPipe[] = {isSysmon, {code, Is, "17"}};
constexpr Condition sysmonOpensPipe[] = {isSysmon, {code, Is, "18"}};
constexpr Member loadedImage[] = {{"path", text, "dll.path|file.path"},
                                  {"md5", text, "dll.hash.md5|file.hash.md5|hash.md5"},
                                  {"sha2", text, "dll.hash.sha256|file.hash.sha256|hash.sha256"}};
constexpr Member pipe[] = {{"name", text, "file.name|winlog.event_data.PipeName"}};

// Process.
constexpr Condition processFailed[] = {ofProcess, failed};
constexpr Condition processEnds[] = {ofProcess, isEnd};
constexpr Condition processStarts[] = {ofProcess, isStart};
constexpr Condition injects[] = {ofProcess, isSysmon, {code, Is, "8"}};
constexpr Condition opensProcess[] = {ofProcess, {type, IsNoCase, "access"}};
constexpr Condition processChanges[] = {ofProcess, {type, IsNoCase, "change"}};
constexpr Condition process[] = {ofProcess};

constexpr std::string_view own = "process.entity_id";
constexpr std::string_view commandLine = "process.command_line|process.title";

constexpr Member actor[] = {
    {"path", text, "process.executable"},  {"md5", text, "process.hash.md5"},
    {"sha2", text, "process.hash.sha256"}, {"cmd_line", text, commandLine},
    {"pid", number, "process.pid"},        {"uid", guid, own}};
constexpr Member parent[] = {{"path", text, "process.parent.executable"},
                             {"md5", text, "process.parent.hash.md5"},
                             {"sha2", text, "process.parent.hash.sha256"},
                             {"cmd_line", text, "process.parent.command_line"},
                             {"pid", number, "process.parent.pid|process.ppid"},
                             {"uid", guid, "process.parent.entity_id"}};
constexpr Member launched[] = {
    {"path", text, "process.executable"},
    {"md5", text, "process.hash.md5"},
    {"sha2", text, "process.hash.sha256"},
    {"cmd_line", text, commandLine},
    {"session_id", number,
     "process.Ext.session_info.id|winlog.event_data.TerminalSessionId|auditd.session"},
    {"pid", number, "process.pid"},
    {"uid", guid, own}};
constexpr Member other[] = {
    {"path", text, "Target.process.executable|winlog.event_data.TargetImage"},
    {"pid", number, "Target.process.pid|winlog.event_data.TargetProcessId"},
    {"uid", guid, "Target.process.entity_id|winlog.event_data.TargetProcessGuid"}};

// Modules.
constexpr Condition moduleFailed[] = {ofModule, failed};
constexpr Condition unloads[] = {ofModule, {action, HasNoCase, "unload"}};
constexpr Condition loads[] = {ofModule};
constexpr Member module[] = {
    {"path", text, "dll.path"}, {"md5", text, "dll.hash.md5"}, {"sha2", text, "dll.hash.sha256"}};

// Files. Each row stands twice, first for folders.
constexpr Condition renamesWord{action, HasNoCase, "renam|moved"};
constexpr Condition deletesWord{action, HasNoCase, "delet|remov"};
constexpr Condition createsWord{action, HasNoCase, "creat"};
constexpr Condition securesWord{action, HasNoCase, "permission|owner"};
constexpr Condition attributeWord{action, HasNoCase, "attribute"};
constexpr Condition opensWord{action, HasNoCase, "open"};
constexpr Condition isDeletion{type, IsNoCase, "deletion"};
constexpr Condition isCreation{type, IsNoCase, "creation"};
constexpr Condition isAccess{type, IsNoCase, "access"};
constexpr Condition isChange{type, IsNoCase, "change"};
constexpr Condition hasOldPath{"file.Ext.original.path", IsThere, {}};

constexpr Member file[] = {{"path", text, "file.path"},
                           {"md5", text, "file.hash.md5|hash.md5"},
                           {"sha2", text, "file.hash.sha256|hash.sha256"}};
constexpr Member oldFile[] = {{"path", text, "file.Ext.original.path"}};

struct FileRule {
    Condition condition;
    std::string_view action;
};
constexpr FileRule fileRules[] = {
    {failed, "generic"},
    {renamesWord, "rename"},
    {isDeletion, "delete"},
    {deletesWord, "delete"},
    {isCreation, "create"},
    {createsWord, "create"},
    {securesWord, "set_security"},
    {attributeWord, "set_attributes"},
    {isAccess, "open"},
    {opensWord, "open"},
    {isChange, "modify"},
    {ofFile, "generic"},
};
constexpr std::size_t fileRuleCount = std::size(fileRules);

constexpr auto folderConditions = [] {
    std::array<std::array<Condition, 3>, fileRuleCount> result{};
    for (std::size_t i = 0; i < fileRuleCount; ++i)
        result[i] = {ofFile, isFolder, fileRules[i].condition};
    return result;
}();
constexpr auto fileConditions = [] {
    std::array<std::array<Condition, 2>, fileRuleCount> result{};
    for (std::size_t i = 0; i < fileRuleCount; ++i)
        result[i] = {ofFile, fileRules[i].condition};
    return result;
}();
constexpr Condition fileMoves[] = {ofFile, renamesWord, hasOldPath};

// Registry. Sysmon's module gives a value's name to keys as well, but leaves the kind of event.
constexpr Condition valueFailed[] = {ofRegistry, failed, hasValue};
constexpr Condition keyFailed[] = {ofRegistry, failed};
constexpr Condition sysmonCreatesKey[] = {ofRegistry, {sysmonType, Is, "CreateKey"}};
constexpr Condition sysmonDeletesKey[] = {ofRegistry, {sysmonType, Is, "DeleteKey"}};
constexpr Condition sysmonDeletesValue[] = {ofRegistry, {sysmonType, Is, "DeleteValue"}};
constexpr Condition sysmonRenamesKey[] = {ofRegistry, {sysmonType, Is, "RenameKey"}};
constexpr Condition renamesValue[] = {ofRegistry, hasValue, renamesWord};
constexpr Condition deletesValue[] = {ofRegistry, hasValue, isDeletion};
constexpr Condition readsValue[] = {ofRegistry, hasValue, isAccess};
constexpr Condition setsValue[] = {ofRegistry, hasValue};
constexpr Condition renamesKey[] = {ofRegistry, renamesWord};
constexpr Condition deletesKey[] = {ofRegistry, isDeletion};
constexpr Condition createsKey[] = {ofRegistry, isCreation};
constexpr Condition readsKey[] = {ofRegistry, isAccess};
constexpr Condition changesKey[] = {ofRegistry};

constexpr Member value[] = {
    {"path", registryPath, "registry.path"},
    {"name", text, "registry.value"},
    {"type_id", registryType, "winlog.event_data.Details|registry.data.type"},
    {"data", text,
     "winlog.event_data.Details|registry.data.strings|"
     "registry.data.bytes"}};
constexpr Member key[] = {{"path", registryPath, "registry.path"}};
constexpr Member newKey[] = {{"path", registryPath, "winlog.event_data.NewName"}};

// Network.
constexpr Condition asksForName[] = {{"dns.question.name", IsThere, {}}};
constexpr Condition hasAddress{"destination.ip|source.ip", IsThere, {}};
constexpr Condition networkFailed[] = {ofNetwork, failed, hasAddress};
constexpr Condition networkEnds[] = {ofNetwork, isEnd, hasAddress};
constexpr Condition denied[] = {ofNetwork, {type, IsNoCase, "denied"}, hasAddress};
constexpr Condition acceptsWord[] = {ofNetwork, {action, HasNoCase, "accept"}, hasAddress};
constexpr Condition isInbound[] = {
    ofNetwork, {"network.direction", IsNoCase, "ingress|inbound|incoming"}, hasAddress};
constexpr Condition connects[] = {ofNetwork, {type, IsNoCase, "start|connection"}, hasAddress};
constexpr Condition network[] = {ofNetwork, hasAddress};

constexpr std::string_view transport = "network.iana_number|network.transport";
constexpr Member outgoing[] = {{"dst_ip", text, "destination.ip"},
                               {"src_ip", text, "source.ip"},
                               {"url", text, "destination.domain"},
                               {"dst_port", number, "destination.port"},
                               {"src_port", number, "source.port"},
                               {"protocol_id", number, transport},
                               {"direction_id", constant, R"({"value":[2]})"}};
constexpr Member incoming[] = {{"dst_ip", text, "destination.ip"},
                               {"src_ip", text, "source.ip"},
                               {"url", text, "source.domain"},
                               {"dst_port", number, "destination.port"},
                               {"src_port", number, "source.port"},
                               {"protocol_id", number, transport},
                               {"direction_id", constant, R"({"value":[1]})"}};
constexpr Member flow[] = {
    {"dst_ip", text, "destination.ip"},  {"src_ip", text, "source.ip"},
    {"url", text, "destination.domain"}, {"dst_port", number, "destination.port"},
    {"src_port", number, "source.port"}, {"protocol_id", number, transport}};
constexpr Member question[] = {{"text", text, "dns.question.name"}};

// Sessions. Tickets and checks of a password begin none.
constexpr Condition sessionFailed[] = {ofSession, failed};
constexpr Condition checks[] = {ofSession, {action, HasNoCase, "ticket|validat|credential"}};
constexpr Condition logsOff[] = {ofSession, isEnd};
constexpr Condition logsOn[] = {ofSession, isStart};
constexpr Condition session[] = {ofSession};

constexpr std::string_view sessionId =
    "winlog.logon.id|auditd.session|process.Ext.session_info.id|process.Ext.authentication_id";
constexpr Member loggedOn[] = {{"id", low32, sessionId},
                               {"user_name", plainText, "user.name"},
                               {"user_domain", plainText, "user.domain"},
                               {"user_sid", plainText, "user.id"},
                               {"session_state", constant, R"(["logged-on"])"}};
constexpr Member loggedOff[] = {{"id", low32, sessionId},
                                {"user_name", plainText, "user.name"},
                                {"user_domain", plainText, "user.domain"},
                                {"user_sid", plainText, "user.id"},
                                {"session_state", constant, R"(["logged-off"])"}};
constexpr Member user[] = {{"id", low32, sessionId},
                           {"user_name", plainText, "user.name"},
                           {"user_domain", plainText, "user.domain"},
                           {"user_sid", plainText, "user.id"}};

// events, conditions, object type, action, needed, correlation, actor, target, result
constexpr MappingRow otherRows[] = {
    // The end of a connection may name what its address was asked for.
    {{}, networkEnds, "network", "close", {}, own, actor, flow, {}},
    {{}, asksForName, "url", "request", "dns.question.name", own, actor, question, {}},

    {{}, sysmonLoads, "module", "load", loadedImage[0].from, own, actor, loadedImage, {}},
    {{}, sysmonMakesPipe, "kernel_object", "create", pipe[0].from, own, actor, pipe, {}},
    {{}, sysmonOpensPipe, "kernel_object", "connect", pipe[0].from, own, actor, pipe, {}},

    {{}, moduleFailed, "module", "generic", "dll.path", own, actor, module, {}},
    {{}, unloads, "module", "unload", "dll.path", own, actor, module, {}},
    {{}, loads, "module", "load", "dll.path", own, actor, module, {}},

    {{}, valueFailed, "reg_value", "generic", "registry.path", own, actor, value, {}},
    {{}, keyFailed, "reg_key", "generic", "registry.path", own, actor, key, {}},
    {{}, sysmonCreatesKey, "reg_key", "create", "registry.path", own, actor, key, {}},
    {{}, sysmonDeletesKey, "reg_key", "delete", "registry.path", own, actor, key, {}},
    {{}, sysmonDeletesValue, "reg_value", "delete", "registry.path", own, actor, value, {}},
    {{}, sysmonRenamesKey, "reg_key", "rename", "registry.path", own, actor, key, newKey},
    {{}, renamesValue, "reg_value", "rename", "registry.path", own, actor, value, newKey},
    {{}, deletesValue, "reg_value", "delete", "registry.path", own, actor, value, {}},
    {{}, readsValue, "reg_value", "open", "registry.path", own, actor, value, {}},
    {{}, setsValue, "reg_value", "set", "registry.path", own, actor, value, {}},
    {{}, renamesKey, "reg_key", "rename", "registry.path", own, actor, key, newKey},
    {{}, deletesKey, "reg_key", "delete", "registry.path", own, actor, key, {}},
    {{}, createsKey, "reg_key", "create", "registry.path", own, actor, key, {}},
    {{}, readsKey, "reg_key", "open", "registry.path", own, actor, key, {}},
    {{}, changesKey, "reg_key", "modify", "registry.path", own, actor, key, {}},

    {{}, networkFailed, "network", "generic", {}, own, actor, flow, {}},
    {{}, denied, "network", "generic", {}, own, actor, flow, {}},
    {{}, acceptsWord, "network", "accept", {}, own, actor, incoming, {}},
    {{}, isInbound, "network", "accept", {}, own, actor, incoming, {}},
    {{}, connects, "network", "connect", {}, own, actor, outgoing, {}},
    {{}, network, "network", "generic", {}, own, actor, flow, {}},

    {{}, processFailed, "process", "generic", "process.executable", own, parent, launched, {}},
    {{}, processEnds, "process", "terminate", "process.executable", own, actor, actor, {}},
    {{}, processStarts, "process", "launch", "process.executable", own, parent, launched, {}},
    {{}, injects, "process", "injection", other[0].from, own, actor, other, {}},
    {{}, opensProcess, "process", "open", other[0].from, own, actor, other, {}},
    {{}, processChanges, "process", "modify", "process.executable", own, actor, actor, {}},
    {{}, process, "process", "generic", "process.executable", own, parent, launched, {}},

    {{}, sessionFailed, "session", "generic", {}, {}, actor, user, {}},
    {{}, checks, "session", "generic", {}, {}, actor, user, {}},
    {{}, logsOff, "session", "logoff", {}, {}, actor, loggedOff, {}},
    {{}, logsOn, "session", "logon", {}, {}, actor, loggedOn, {}},
    {{}, session, "session", "generic", {}, {}, actor, user, {}},
};

// With the rows of files behind the others: an event of a process may name its program's file.
constexpr auto rows = [] {
    std::array<MappingRow, std::size(otherRows) + 2 * fileRuleCount + 1> result{};
    std::size_t next = 0;
    for (const MappingRow& row : otherRows)
        result[next++] = row;
    result[next++] = {{}, fileMoves, "file", "rename", "file.path", own, actor, oldFile, file};
    for (std::size_t i = 0; i < fileRuleCount; ++i) {
        const std::string_view name = fileRules[i].action;
        result[next++] = {{},    folderConditions[i],      "directory", name, "file.path", own,
                          actor, std::span(file).first(1), {}};
        result[next++] = {{}, fileConditions[i], "file", name, "file.path", own, actor, file, {}};
    }
    return result;
}();

}  // namespace

const MappingTable ecsTable{rows, {}, false};

}  // namespace zel
