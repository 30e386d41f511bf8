#include <algorithm>

#include "hunt/rulesources.h"

// Sysmon's schema: what it writes of each kind of event, so that a rule that asks for anything else
// can be told that it asks in vain. Names that only some versions write are there.

namespace zel {

namespace {

using Names = std::string_view;

constexpr Names launch[] = {
    "ProcessGuid",       "ProcessId",         "Image",          "FileVersion",
    "Description",       "Product",           "Company",        "OriginalFileName",
    "CommandLine",       "CurrentDirectory",  "User",           "LogonGuid",
    "LogonId",           "TerminalSessionId", "IntegrityLevel", "Hashes",
    "ParentProcessGuid", "ParentProcessId",   "ParentImage",    "ParentCommandLine",
    "ParentUser"};
constexpr Names fileTime[] = {"ProcessGuid",
                              "ProcessId",
                              "Image",
                              "TargetFilename",
                              "CreationUtcTime",
                              "PreviousCreationUtcTime",
                              "User"};
constexpr Names connection[] = {
    "ProcessGuid",    "ProcessId",           "Image",           "User",
    "Protocol",       "Initiated",           "SourceIsIpv6",    "SourceIp",
    "SourceHostname", "SourcePort",          "SourcePortName",  "DestinationIsIpv6",
    "DestinationIp",  "DestinationHostname", "DestinationPort", "DestinationPortName"};
constexpr Names state[] = {"State", "Version", "SchemaVersion"};
constexpr Names termination[] = {"ProcessGuid", "ProcessId", "Image", "User"};
constexpr Names driver[] = {"ImageLoaded", "Hashes", "Signed", "Signature", "SignatureStatus"};
constexpr Names module[] = {"ProcessGuid", "ProcessId",        "Image",   "ImageLoaded",
                            "FileVersion", "Description",      "Product", "Company",
                            "Hashes",      "OriginalFileName", "Signed",  "Signature",
                            "User",        "SignatureStatus"};
constexpr Names thread[] = {"SourceProcessGuid", "SourceProcessId", "SourceImage",
                            "TargetProcessGuid", "TargetProcessId", "TargetImage",
                            "NewThreadId",       "StartAddress",    "StartModule",
                            "StartFunction",     "SourceUser",      "TargetUser"};
constexpr Names rawAccess[] = {"ProcessGuid", "ProcessId", "Image", "Device", "User"};
constexpr Names access[] = {"SourceProcessGuid", "SourceProcessId",   "SourceThreadId",
                            "SourceImage",       "TargetProcessGuid", "TargetProcessId",
                            "TargetImage",       "GrantedAccess",     "CallTrace",
                            "SourceUser",        "TargetUser"};
constexpr Names creation[] = {"ProcessGuid",    "ProcessId",       "Image",
                              "TargetFilename", "CreationUtcTime", "User"};
constexpr Names key[] = {"EventType", "ProcessGuid", "ProcessId", "Image", "TargetObject", "User"};
constexpr Names value[] = {"EventType",    "ProcessGuid", "ProcessId", "Image",
                           "TargetObject", "Details",     "User"};
constexpr Names renaming[] = {"EventType",    "ProcessGuid", "ProcessId", "Image",
                              "TargetObject", "NewName",     "User"};
constexpr Names stream[] = {"ProcessGuid",     "ProcessId", "Image",    "TargetFilename",
                            "CreationUtcTime", "Hash",      "Contents", "User"};
constexpr Names configuration[] = {"Configuration", "ConfigurationFileHash"};
constexpr Names pipe[] = {"EventType", "ProcessGuid", "ProcessId", "PipeName", "Image", "User"};
constexpr Names wmiFilter[] = {"EventType", "Operation", "User", "EventNamespace", "Name", "Query"};
constexpr Names wmiConsumer[] = {"EventType", "Operation", "User", "Name", "Type", "Destination"};
constexpr Names wmiBinding[] = {"EventType", "Operation", "User", "Consumer", "Filter"};
constexpr Names query[] = {"ProcessGuid",  "ProcessId", "QueryName", "QueryStatus",
                           "QueryResults", "Image",     "User"};
constexpr Names deletion[] = {"ProcessGuid",    "ProcessId", "User",         "Image",
                              "TargetFilename", "Hashes",    "IsExecutable", "Archived"};
constexpr Names clipboard[] = {"ProcessGuid", "ProcessId", "Image",    "Session",
                               "ClientInfo",  "Hashes",    "Archived", "User"};
constexpr Names tampering[] = {"ProcessGuid", "ProcessId", "Image", "Type", "User"};
constexpr Names failure[] = {"ID", "Description"};

struct Schema {
    std::uint32_t number;
    std::span<const Names> fields;
};
constexpr Schema schemas[] = {
    {1, launch},         {2, fileTime},  {3, connection}, {4, state},      {5, termination},
    {6, driver},         {7, module},    {8, thread},     {9, rawAccess},  {10, access},
    {11, creation},      {12, key},      {13, value},     {14, renaming},  {15, stream},
    {16, configuration}, {17, pipe},     {18, pipe},      {19, wmiFilter}, {20, wmiConsumer},
    {21, wmiBinding},    {22, query},    {23, deletion},  {24, clipboard}, {25, tampering},
    {26, deletion},      {27, deletion}, {28, deletion},  {29, deletion},  {255, failure},
};

}  // namespace

std::span<const std::string_view> SysmonFields(std::uint32_t number) {
    const auto found = std::find_if(std::begin(schemas), std::end(schemas),
                                    [&](const Schema& each) { return each.number == number; });
    return found != std::end(schemas) ? found->fields : std::span<const Names>();
}

}  // namespace zel
