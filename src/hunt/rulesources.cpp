#include "hunt/rulesources.h"

#include <algorithm>

#include "common/asciicase.h"
#include "records/formats/windowstables.h"

// The log sources of the public rules. A category is a kind of deed: on Windows it is what Sysmon
// records of it, and of all other senders what they make a record of the same object and action of.
// A service is a channel.
//
// Windows' own audit events tell of the same deeds as Sysmon does. Where both are recorded a rule
// would find one deed twice, so they are asked only on request.

namespace zel {

namespace {

using Deed = SourceMeaning::Deed;

struct Category {
    std::string_view name;
    std::vector<std::uint32_t> numbers;  // of Sysmon's events
    bool isShared = true;                // other senders' records are meant as well
    std::string_view onlyAction = {};    // of what Sysmon records under these numbers
    Deed deed = {};                      // of what Sysmon does not record
};

const std::vector<Category>& Categories() {
    static const std::vector<Category> all = {
        {"process_creation", {1}},
        {"file_event", {11}},
        {"registry_set", {13}},
        {"registry_event", {12, 13, 14}},
        {"registry_add", {12}, true, "create"},
        {"registry_delete", {12}, true, "delete"},
        {"registry_rename", {14}},
        {"image_load", {7}},
        {"driver_load", {6}},
        {"network_connection", {3}},
        {"dns_query", {22}},
        {"process_access", {10}},
        {"process_termination", {5}},
        {"process_tampering", {25}},
        {"create_remote_thread", {8}},
        {"pipe_created", {17, 18}},
        {"raw_access_thread", {9}},
        {"file_change", {2}},
        {"file_delete", {23, 26}},
        {"file_delete_detected", {26}},
        {"file_rename", {}, true, {}, {"file", "rename"}},
        {"file_access", {}, true, {}, {"file", "open"}},
        {"create_stream_hash", {15}, false},
        {"file_block_executable", {27}, false},
        {"file_block_shredding", {28}, false},
        {"file_executable_detected", {29}, false},
        {"wmi_event", {19, 20, 21}, false},
        {"clipboard_capture", {24}, false},
        {"clipboard_change", {24}, false},
        {"sysmon_status", {4, 16}, false},
        {"sysmon_error", {255}, false},
    };
    return all;
}

struct Service {
    std::string_view name;
    std::vector<std::string_view> channels;
    std::vector<std::uint32_t> numbers = {};  // none: all
};

// Categories that are one kind of event of a channel beside Sysmon's.
const std::vector<Service>& ChannelCategories() {
    const std::vector<std::string_view> powershell = {"Microsoft-Windows-PowerShell/Operational",
                                                      "PowerShellCore/Operational"};
    static const std::vector<Service> all = {
        {"ps_module", powershell, {4103}},
        {"ps_script", powershell, {4104}},
        {"ps_classic_start", {"Windows PowerShell"}, {400}},
        {"ps_classic_provider_start", {"Windows PowerShell"}, {600}},
        {"ps_classic_script", {"Windows PowerShell"}, {800}},
    };
    return all;
}

const std::vector<Service>& Services() {
    static const std::vector<Service> all = {
        {"sysmon", {sysmonChannels[0], sysmonChannels[1]}},
        {"security", {"Security"}},
        {"system", {"System"}},
        {"application", {"Application"}},
        {"powershell", {"Microsoft-Windows-PowerShell/Operational", "PowerShellCore/Operational"}},
        {"powershell-classic", {"Windows PowerShell"}},
        {"wmi", {"Microsoft-Windows-WMI-Activity/Operational"}},
        {"taskscheduler", {"Microsoft-Windows-TaskScheduler/Operational"}},
        {"windefend", {"Microsoft-Windows-Windows Defender/Operational"}},
        {"firewall-as", {"Microsoft-Windows-Windows Firewall With Advanced Security/Firewall"}},
        {"bitlocker", {"Microsoft-Windows-BitLocker/BitLocker Management"}},
        {"bits-client", {"Microsoft-Windows-Bits-Client/Operational"}},
        {"codeintegrity-operational", {"Microsoft-Windows-CodeIntegrity/Operational"}},
        {"applocker",
         {"Microsoft-Windows-AppLocker/MSI and Script", "Microsoft-Windows-AppLocker/EXE and DLL",
          "Microsoft-Windows-AppLocker/Packaged app-Deployment",
          "Microsoft-Windows-AppLocker/Packaged app-Execution"}},
        {"appmodel-runtime", {"Microsoft-Windows-AppModel-Runtime/Admin"}},
        {"appxdeployment-server", {"Microsoft-Windows-AppXDeploymentServer/Operational"}},
        {"appxpackaging-om", {"Microsoft-Windows-AppxPackaging/Operational"}},
        {"capi2", {"Microsoft-Windows-CAPI2/Operational"}},
        {"certificateservicesclient-lifecycle-system",
         {"Microsoft-Windows-CertificateServicesClient-Lifecycle-System/Operational"}},
        {"dhcp", {"Microsoft-Windows-DHCP-Server/Operational"}},
        {"diagnosis-scripted", {"Microsoft-Windows-Diagnosis-Scripted/Operational"}},
        {"dns-client",
         {"Microsoft-Windows-DNS Client Events/Operational",
          "Microsoft-Windows-DNS-Client/Operational"}},
        {"dns-server", {"DNS Server"}},
        {"dns-server-analytic", {"Microsoft-Windows-DNS-Server/Analytical"}},
        {"dns-server-audit", {"Microsoft-Windows-DNS-Server/Audit"}},
        {"driver-framework", {"Microsoft-Windows-DriverFrameworks-UserMode/Operational"}},
        {"hyper-v-worker",
         {"Microsoft-Windows-Hyper-V-Worker", "Microsoft-Windows-Hyper-V-Worker-Admin",
          "Microsoft-Windows-Hyper-V-Worker-Operational"}},
        {"iis-configuration", {"Microsoft-IIS-Configuration/Operational"}},
        {"kernel-event-tracing",
         {"Microsoft-Windows-Kernel-EventTracing", "Microsoft-Windows-Kernel-EventTracing/Admin"}},
        {"kernel-shimengine",
         {"Microsoft-Windows-Kernel-ShimEngine/Operational",
          "Microsoft-Windows-Kernel-ShimEngine/Diagnostic"}},
        {"ldap", {"Microsoft-Windows-LDAP-Client/Debug"}},
        {"ldap_debug", {"Microsoft-Windows-LDAP-Client/Debug"}},
        {"lsa-server", {"Microsoft-Windows-LSA/Operational"}},
        {"microsoft-servicebus-client",
         {"Microsoft-ServiceBus-Client", "Microsoft-ServiceBus-Client/Operational",
          "Microsoft-ServiceBus-Client/Admin"}},
        {"msexchange-management", {"MSExchange Management"}},
        {"ntfs", {"Microsoft-Windows-Ntfs/Operational"}},
        {"ntlm", {"Microsoft-Windows-NTLM/Operational"}},
        {"openssh", {"OpenSSH/Operational"}},
        {"printservice-admin", {"Microsoft-Windows-PrintService/Admin"}},
        {"printservice-operational", {"Microsoft-Windows-PrintService/Operational"}},
        {"security-mitigations",
         {"Microsoft-Windows-Security-Mitigations/Kernel Mode",
          "Microsoft-Windows-Security-Mitigations/User Mode"}},
        {"sense", {"Microsoft-Windows-SENSE/Operational"}},
        {"shell-core", {"Microsoft-Windows-Shell-Core/Operational"}},
        {"smbclient-connectivity", {"Microsoft-Windows-SmbClient/Connectivity"}},
        {"smbclient-security", {"Microsoft-Windows-SmbClient/Security"}},
        {"smbserver-connectivity", {"Microsoft-Windows-SMBServer/Connectivity"}},
        {"terminalservices-localsessionmanager",
         {"Microsoft-Windows-TerminalServices-LocalSessionManager/Operational"}},
        {"vhdmp", {"Microsoft-Windows-VHDMP-Operational", "Microsoft-Windows-VHDMP/Operational"}},
        {"application-experience",
         {"Microsoft-Windows-Application-Experience/Program-Telemetry",
          "Microsoft-Windows-Application-Experience/Program-Compatibility-Assistant"}},
    };
    return all;
}

// What no row makes a record of is kept as this.
constexpr Deed kept = {"etw", "generic"};

template <typename Row>
const Row* FindNamed(const std::vector<Row>& rows, std::string_view name) {
    const auto found =
        std::find_if(rows.begin(), rows.end(), [&](const Row& row) { return row.name == name; });
    return found != rows.end() ? &*found : nullptr;
}

template <typename Thing>
bool HasOne(const std::vector<Thing>& all, const Thing& thing) {
    return std::find(all.begin(), all.end(), thing) != all.end();
}

void AddDeed(const Deed& deed, SourceMeaning* meaning) {
    if (!HasOne(meaning->deeds, deed))
        meaning->deeds.push_back(deed);
}

void TakeCategory(const Category& category, SourceMeaning* meaning) {
    if (!category.numbers.empty())
        meaning->channels.assign(std::begin(sysmonChannels), std::end(sysmonChannels));
    meaning->numbers = category.numbers;
    meaning->isShared = category.isShared;
    for (const MappingRow& row : WindowsTable(sysmonChannels[0]).rows)
        for (const std::uint32_t number : category.numbers)
            if (IsOfNumber(row, number) &&
                (category.onlyAction.empty() || row.action == category.onlyAction))
                AddDeed({row.objectType, row.action}, meaning);
    if (!category.deed.object.empty())
        AddDeed(category.deed, meaning);
    else if (category.onlyAction.empty())
        AddDeed(kept, meaning);
}

// Other formats pass on events of the channels, and may see another deed in them, so that any
// action counts.
void TakeService(const Service& service, SourceMeaning* meaning) {
    meaning->channels = service.channels;
    meaning->numbers = service.numbers;
    AddDeed(kept, meaning);
    for (const std::string_view channel : service.channels)
        for (const MappingRow& row : WindowsTable(channel).rows)
            if (service.numbers.empty() && row.objectType != kept.object)
                AddDeed({row.objectType, {}}, meaning);
}

bool TakeNamedCategory(std::string_view name, SourceMeaning* meaning) {
    if (const Category* const category = FindNamed(Categories(), name)) {
        TakeCategory(*category, meaning);
        return true;
    }
    if (const Service* const channel = FindNamed(ChannelCategories(), name)) {
        TakeService(*channel, meaning);
        return true;
    }
    return false;
}

bool TakeNamedService(std::string_view name, SourceMeaning* meaning) {
    if (name == "auditd") {
        meaning->format = "audit";
        return meaning->product == Product::linuxes || meaning->product == Product::unknown;
    }
    const bool isOfLinux = meaning->product == Product::linuxes;
    if (meaning->product == Product::macos || (isOfLinux && name != "sysmon"))
        return false;
    const Service* const service = FindNamed(Services(), name);
    if (service != nullptr)
        TakeService(*service, meaning);
    return service != nullptr;
}

bool Refuse(std::string_view what, std::string_view name, std::string* problem) {
    *problem = "no format gives events of ";
    problem->append(what).append(" ").append(name);
    return false;
}

}  // namespace

bool FindSource(const LogSource& source, bool asksAuditLog, SourceMeaning* meaning,
                std::string* problem) {
    *meaning = {};
    meaning->product = ProductNamed(source.product);
    if (!source.product.empty() && meaning->product == Product::unknown)
        return Refuse("product", source.product, problem);
    if (!source.category.empty() && !source.service.empty()) {
        *problem = "no source is known that is of category " + source.category +
                   " and of service " + source.service;
        return false;
    }
    if (!source.category.empty() && !TakeNamedCategory(source.category, meaning))
        return Refuse("category", source.category, problem);
    if (!source.service.empty() && !TakeNamedService(source.service, meaning))
        return Refuse("service", source.service, problem);
    meaning->asksAuditLog = asksAuditLog && meaning->isShared;
    return true;
}

bool SourceMeaning::Means(const EventKind& kind) const {
    if (product != Product::unknown && kind.product != Product::unknown && product != kind.product)
        return false;
    const bool isDeed = deeds.empty() || std::any_of(deeds.begin(), deeds.end(), [&](auto& deed) {
                            return deed.object == kind.object &&
                                   (deed.action.empty() || deed.action == kind.action);
                        });
    if (!isDeed || (!format.empty() && format != kind.format))
        return false;
    if (channels.empty() && !isShared)
        return true;
    if (!kind.isWindows)
        return isShared && kind.object != kept.object;
    const auto isChannel = [&](auto name) { return ZEL::EqualsNoCase(kind.channel, name); };
    if (std::any_of(channels.begin(), channels.end(), isChannel))
        return numbers.empty() || HasOne(numbers, kind.number);
    return asksAuditLog && isChannel(std::string_view("Security")) && kind.object != kept.object;
}

std::vector<EventKind> SourceMeaning::Examples() const {
    std::vector<EventKind> examples;
    const auto add = [&](std::string_view from, std::string_view channel,
                         const MappingTable& table) {
        for (const MappingRow& row : table.rows)
            for (const std::uint32_t number : row.events) {
                const EventKind kind = KindOf(from, channel, number, row.objectType, row.action);
                if ((number != 0 || !kind.isWindows) && Means(kind))
                    examples.push_back(kind);
            }
    };
    for (const Service& service : Services())
        for (const std::string_view channel : service.channels)
            add("windows-json", channel, WindowsTable(channel));
    for (const std::string_view each : {"ecs", "ocsf", "audit", "osquery"})
        add(each, {}, *KindOf(each, {}, 0, {}, {}).table);
    for (const MappingRow& row : WindowsTable(sysmonChannels[0]).rows)
        if (const EventKind kind = KindOf({}, {}, 0, row.objectType, row.action); Means(kind))
            examples.push_back(kind);
    for (const std::string_view channel : channels)
        for (const std::uint32_t number : numbers)
            examples.push_back(KindOf("windows-json", channel, number, kept.object, kept.action));
    return examples;
}

// Paths are not asked for: keys leave out some of them (with `<`, `>` or `\\?\`), so that a
// sub-query on one would miss events. Nor are products and channels, which no key holds.
std::vector<Narrowing> SourceMeaning::Narrowings() const {
    std::vector<Narrowing> narrowings;
    for (const Deed& deed : deeds) {
        auto found = std::find_if(narrowings.begin(), narrowings.end(), [&](const Narrowing& each) {
            return each.object == deed.object;
        });
        if (found == narrowings.end()) {
            found = narrowings.emplace(narrowings.end());
            found->object = deed.object;
        }
        if (!deed.action.empty())
            found->actions.emplace_back(deed.action);
    }
    if (narrowings.empty())
        narrowings.emplace_back();
    return narrowings;
}

}  // namespace zel
