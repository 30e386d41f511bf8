#include "records/formats/windowstables.h"

#include "common/asciicase.h"

// The names of the fields are those of Sysmon's schema and of Windows' audit events. The order of
// the rows of one number counts: the last of them takes what the ones before it did not want.

namespace zel {

namespace {

using enum Conversion;

// The digit so many places from the right of a mask "0x10002"; 0 when it has fewer.
char DigitOf(std::string_view mask, std::size_t place) {
    if (!mask.starts_with("0x") && !mask.starts_with("0X"))
        return '0';
    mask.remove_prefix(2);
    const bool isHex = mask.find_first_not_of("0123456789abcdefABCDEF") == mask.npos;
    return isHex && place < mask.size() ? ZEL::ToUpperAscii(mask[mask.size() - 1 - place]) : '0';
}

// The access rights of a file, of which one event may tell several.
bool AsksToDelete(std::string_view mask, std::string_view) {
    return DigitOf(mask, 4) == '1';
}
bool AsksToWrite(std::string_view mask, std::string_view) {
    constexpr std::string_view writing = "234567ABCDEF";
    return writing.find(DigitOf(mask, 0)) != writing.npos;
}

// Sysmon.
constexpr Member process[] = {
    {"path", text, "Image"}, {"pid", number, "ProcessId"}, {"uid", guid, "ProcessGuid"}};
constexpr Member parent[] = {{"path", text, "ParentImage"},
                             {"cmd_line", text, "ParentCommandLine"},
                             {"pid", number, "ParentProcessId"},
                             {"uid", guid, "ParentProcessGuid"}};
constexpr Member launched[] = {
    {"path", text, "Image"},      {"md5", md5, "Hashes"},
    {"sha2", sha256, "Hashes"},   {"cmd_line", text, "CommandLine"},
    {"pid", number, "ProcessId"}, {"session_id", number, "TerminalSessionId"},
    {"uid", guid, "ProcessGuid"},
};
constexpr Member file[] = {
    {"path", text, "TargetFilename"}, {"md5", md5, "Hashes|Hash"}, {"sha2", sha256, "Hashes|Hash"}};
constexpr Member outgoing[] = {
    {"dst_ip", text, "DestinationIp"},
    {"src_ip", text, "SourceIp"},
    {"url", text, "DestinationHostname"},
    {"dst_port", number, "DestinationPort"},
    {"src_port", number, "SourcePort"},
    {"protocol_id", number, "Protocol"},
    {"direction_id", constant, R"({"value":[2]})"},
};
constexpr Member incoming[] = {
    {"dst_ip", text, "DestinationIp"},
    {"src_ip", text, "SourceIp"},
    {"url", text, "DestinationHostname"},
    {"dst_port", number, "DestinationPort"},
    {"src_port", number, "SourcePort"},
    {"protocol_id", number, "Protocol"},
    {"direction_id", constant, R"({"value":[1]})"},
};
constexpr Member kernel[] = {{"path", constant, R"({"value":["System"]})"},
                             {"pid", constant, R"({"value":[4]})"}};
constexpr Member image[] = {
    {"path", text, "ImageLoaded"}, {"md5", md5, "Hashes"}, {"sha2", sha256, "Hashes"}};
constexpr Member sourceProcess[] = {{"path", text, "SourceImage"},
                                    {"pid", number, "SourceProcessId"},
                                    {"uid", guid, "SourceProcessGuid"}};
constexpr Member targetProcess[] = {{"path", text, "TargetImage"},
                                    {"pid", number, "TargetProcessId"},
                                    {"uid", guid, "TargetProcessGuid"}};
constexpr Member device[] = {{"name", text, "Device"}};
constexpr Member pipe[] = {{"name", text, "PipeName"}};
constexpr Member query[] = {{"text", text, "QueryName"}};
constexpr Member regKey[] = {{"path", registryPath, "TargetObject"}};
constexpr Member regName[] = {{"path", registryPath, "TargetObject"},
                              {"name", registryName, "TargetObject"}};
constexpr Member regValue[] = {{"path", registryPath, "TargetObject"},
                               {"name", registryName, "TargetObject"},
                               {"type_id", registryType, "Details"},
                               {"data", text, "Details"}};
constexpr Member newKey[] = {{"path", registryPath, "NewName"}};
constexpr Member newName[] = {{"path", registryPath, "NewName"}, {"name", registryName, "NewName"}};

constexpr Condition isInitiated[] = {{"Initiated", IsNoCase, "true"}};
constexpr Condition deletesKey[] = {{"EventType", Is, "DeleteKey"}};
constexpr Condition deletesValue[] = {{"EventType", Is, "DeleteValue"}};
constexpr Condition isOfValue[] = {{"EventType", HasNoCase, "value"}};

constexpr std::string_view own = "ProcessGuid";
constexpr std::string_view sources = "SourceProcessGuid";

// events, conditions, object type, action, needed, correlation, actor, target, result
constexpr MappingRow sysmonRows[] = {
    {{1}, {}, "process", "launch", "Image", own, parent, launched, {}},
    {{2}, {}, "file", "set_attributes", "TargetFilename", own, process, file, {}},
    {{3}, isInitiated, "network", "connect", "DestinationIp", own, process, outgoing, {}},
    {{3}, {}, "network", "accept", "DestinationIp", own, process, incoming, {}},
    {{5}, {}, "process", "terminate", "Image", own, process, process, {}},
    {{6}, {}, "module", "load", "ImageLoaded", "", kernel, image, {}},
    {{7}, {}, "module", "load", "ImageLoaded", own, process, image, {}},
    {{8}, {}, "process", "injection", "TargetImage", sources, sourceProcess, targetProcess, {}},
    {{9}, {}, "kernel_object", "open", "Device", own, process, device, {}},
    {{10}, {}, "process", "open", "TargetImage", sources, sourceProcess, targetProcess, {}},
    {{11}, {}, "file", "create", "TargetFilename", own, process, file, {}},
    {{12}, deletesKey, "reg_key", "delete", "TargetObject", own, process, regKey, {}},
    {{12}, deletesValue, "reg_value", "delete", "TargetObject", own, process, regName, {}},
    {{12}, {}, "reg_key", "create", "TargetObject", own, process, regKey, {}},
    {{13}, {}, "reg_value", "set", "TargetObject", own, process, regValue, {}},
    {{14}, isOfValue, "reg_value", "rename", "TargetObject", own, process, regName, newName},
    {{14}, {}, "reg_key", "rename", "TargetObject", own, process, regKey, newKey},
    {{15}, {}, "file", "modify", "TargetFilename", own, process, file, {}},
    {{17}, {}, "kernel_object", "create", "PipeName", own, process, pipe, {}},
    {{18}, {}, "kernel_object", "connect", "PipeName", own, process, pipe, {}},
    {{22}, {}, "url", "request", "QueryName", own, process, query, {}},
    {{23, 26}, {}, "file", "delete", "TargetFilename", own, process, file, {}},
    {{25}, {}, "process", "modify", "Image", own, process, process, {}},
    {{27, 28}, {}, "file", "generic", "TargetFilename", own, process, file, {}},
    {{29}, {}, "file", "scan", "TargetFilename", own, process, file, {}},
};

// The audit events of the Security channel.
constexpr Member named[] = {{"path", text, "ProcessName"}, {"pid", number, "ProcessId"}};
constexpr Member creator[] = {{"path", text, "ParentProcessName"}, {"pid", number, "ProcessId"}};
constexpr Member created[] = {{"path", text, "NewProcessName"},
                              {"cmd_line", text, "CommandLine"},
                              {"pid", number, "NewProcessId"}};
constexpr Member loggedOn[] = {
    {"id", low32, "TargetLogonId"},
    {"user_name", plainText, "TargetUserName"},
    {"user_domain", plainText, "TargetDomainName"},
    {"user_sid", plainText, "TargetUserSid|TargetSid"},
    {"session_state", constant, R"(["logged-on"])"},
};
constexpr Member loggedOff[] = {
    {"id", low32, "TargetLogonId"},
    {"user_name", plainText, "TargetUserName"},
    {"user_domain", plainText, "TargetDomainName"},
    {"user_sid", plainText, "TargetUserSid|TargetSid"},
    {"session_state", constant, R"(["logged-off"])"},
};
constexpr Member object[] = {{"path", text, "ObjectName"}};
constexpr Member keyObject[] = {{"path", registryPath, "ObjectName"}};
constexpr Member valueObject[] = {{"path", registryPath, "ObjectName+ObjectValueName"},
                                  {"name", text, "ObjectValueName"},
                                  {"type_id", registryType, "NewValueType"},
                                  {"data", text, "NewValue"}};
constexpr Member auditedService[] = {{"path", text, "ServiceFileName"},
                                     {"name", text, "ServiceName"},
                                     {"type_ids", plainNumbers, "ServiceType"},
                                     {"start_id", plainNumber, "ServiceStartType"},
                                     {"run_state_id", constant, "0"}};
constexpr Member application[] = {{"path", text, "Application"}, {"pid", number, "ProcessId"}};
constexpr Member filteredOut[] = {
    {"dst_ip", text, "DestAddress"},     {"src_ip", text, "SourceAddress"},
    {"dst_port", number, "DestPort"},    {"src_port", number, "SourcePort"},
    {"protocol_id", number, "Protocol"}, {"direction_id", constant, R"({"value":[2]})"},
};
constexpr Member filteredIn[] = {
    {"dst_ip", text, "DestAddress"},     {"src_ip", text, "SourceAddress"},
    {"dst_port", number, "DestPort"},    {"src_port", number, "SourcePort"},
    {"protocol_id", number, "Protocol"}, {"direction_id", constant, R"({"value":[1]})"},
};

constexpr Condition ofKey[] = {{"ObjectType", Is, "Key"}};
constexpr Condition ofFile[] = {{"ObjectType", Is, "File"}};
constexpr Condition ofProcess[] = {{"ObjectType", Is, "Process"}};
constexpr Condition deletesFile[] = {{"ObjectType", Is, "File"}, {"AccessMask", AsksToDelete, ""}};
constexpr Condition writesFile[] = {{"ObjectType", Is, "File"}, {"AccessMask", AsksToWrite, ""}};
constexpr Condition isOutbound[] = {{"Direction", HasNoCase, "14593|outbound"}};

constexpr MappingRow securityRows[] = {
    {{4624}, {}, "session", "logon", "TargetLogonId", "LogonGuid", named, loggedOn, {}},
    {{4634, 4647}, {}, "session", "logoff", "TargetLogonId", "", {}, loggedOff, {}},
    {{4688}, {}, "process", "launch", "NewProcessName", "", creator, created, {}},
    {{4689}, {}, "process", "terminate", "ProcessName", "", named, named, {}},
    {{4657}, {}, "reg_value", "set", "ObjectName,ObjectValueName", "", named, valueObject, {}},
    {{4663}, ofKey, "reg_key", "open", "ObjectName", "", named, keyObject, {}},
    {{4663}, deletesFile, "file", "delete", "ObjectName", "", named, object, {}},
    {{4663}, writesFile, "file", "modify", "ObjectName", "", named, object, {}},
    {{4663}, ofFile, "file", "open", "ObjectName", "", named, object, {}},
    {{4663}, ofProcess, "process", "open", "ObjectName", "", named, object, {}},
    {{4670}, ofFile, "file", "set_security", "ObjectName", "", named, object, {}},
    {{4670}, ofKey, "reg_key", "set_security", "ObjectName", "", named, keyObject, {}},
    {{4697}, {}, "service", "create", "ServiceName", "", {}, auditedService, {}},
    {{5156}, isOutbound, "network", "connect", "DestAddress", "", application, filteredOut, {}},
    {{5156}, {}, "network", "accept", "DestAddress", "", application, filteredIn, {}},
};

// Other channels.
constexpr Member installedService[] = {{"path", text, "ImagePath"},
                                       {"name", text, "ServiceName"},
                                       {"type_ids", plainNumbers, "ServiceType"},
                                       {"start_id", plainNumber, "StartType"},
                                       {"run_state_id", constant, "0"}};
constexpr MappingRow systemRows[] = {
    {{7045}, {}, "service", "create", "ServiceName", "", {}, installedService, {}}};

constexpr Member scriptBlock[] = {
    {"ref_event", constant, R"({"value":[4104]})"},
    {"source", constant, R"({"facility":{"value":["Microsoft-Windows-PowerShell"]}})"}};
constexpr MappingRow powershellRows[] = {
    {{4104}, {}, "etw", "generic", "", "", {}, scriptBlock, {}}};

constexpr std::string_view wmi = R"({"facility":{"value":["Microsoft-Windows-WMI-Activity"]}})";
constexpr Member wmiFailure[] = {{"ref_event", constant, R"({"value":[5858]})"},
                                 {"source", constant, wmi}};
constexpr Member wmiSubscription[] = {{"ref_event", constant, R"({"value":[5861]})"},
                                      {"source", constant, wmi}};
constexpr MappingRow wmiRows[] = {
    {{5858}, {}, "etw", "generic", "", "", {}, wmiFailure, {}},
    {{5861}, {}, "etw", "generic", "", "", {}, wmiSubscription, {}},
};

constexpr MappingTable sysmonTable = {sysmonRows, "UtcTime", true};

struct Channel {
    std::string_view name;
    MappingTable table;
};
constexpr Channel channels[] = {
    {"Microsoft-Windows-Sysmon/Operational", sysmonTable},
    {"Linux-Sysmon/Operational", sysmonTable},
    {"Security", {securityRows}},
    {"System", {systemRows}},
    {"Microsoft-Windows-PowerShell/Operational", {powershellRows}},
    {"Microsoft-Windows-WMI-Activity/Operational", {wmiRows}},
};

}  // namespace

const MappingTable& WindowsTable(std::string_view channel) {
    static constexpr MappingTable none = {};
    for (const Channel& known : channels)
        if (ZEL::EqualsNoCase(known.name, channel))
            return known.table;
    return none;
}

}  // namespace zel
