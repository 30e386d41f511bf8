#include "hunt/eventkind.h"

#include <algorithm>

#include "common/asciicase.h"
#include "records/formats/audittable.h"
#include "records/formats/ecstable.h"
#include "records/formats/ocsftable.h"
#include "records/formats/osquerytable.h"
#include "records/formats/windowstables.h"

namespace zel {

namespace {

bool IsWindowsFormat(std::string_view format) {
    return format == "windows-json" || format == "windows-xml" || format == "evtx";
}

// Other formats pass on events of Windows' channels, and have channels of the same names: only a
// number that the channel has makes it one of Windows.
bool IsOfChannel(std::string_view channel, std::uint32_t number) {
    const auto rows = WindowsTable(channel).rows;
    return number != 0 && std::any_of(rows.begin(), rows.end(), [&](const MappingRow& row) {
               return IsOfNumber(row, number);
           });
}

Product ProductOf(const EventKind& kind) {
    if (kind.isWindows)
        return ZEL::StartsWithNoCase(std::string_view(kind.channel), "Linux-") ? Product::linuxes
                                                                               : Product::windows;
    if (kind.format == "audit")
        return Product::linuxes;
    if (kind.format != "osquery")
        return Product::unknown;
    if (kind.channel.find("es_process") != std::string::npos)
        return Product::macos;
    if (kind.channel.find("bpf_") != std::string::npos)
        return Product::linuxes;
    const bool isOfWindows = kind.channel.find("_etw_") != std::string::npos ||
                             kind.channel.find("ntfs_") != std::string::npos;
    return isOfWindows ? Product::windows : Product::unknown;
}

const MappingTable* TableOf(const EventKind& kind) {
    if (kind.isWindows)
        return &WindowsTable(kind.channel);
    if (kind.format == "ecs")
        return &ecsTable;
    if (kind.format == "ocsf")
        return &ocsfTable;
    if (kind.format == "audit")
        return &auditTable;
    return kind.format == "osquery" ? &osqueryTable : nullptr;
}

}  // namespace

Product ProductNamed(std::string_view name) noexcept {
    struct Named {
        std::string_view name;
        Product product;
    };
    constexpr Named all[] = {{"windows", Product::windows},
                             {"linux", Product::linuxes},
                             {"macos", Product::macos},
                             {"darwin", Product::macos}};
    const auto* const found = std::find_if(std::begin(all), std::end(all), [&](const Named& each) {
        return ZEL::EqualsNoCase(name, each.name);
    });
    return found != std::end(all) ? found->product : Product::unknown;
}

bool IsOfNumber(const MappingRow& row, std::uint32_t number) {
    return row.events[0] == 0 || row.events[0] == number ||
           (row.events[1] != 0 && row.events[1] == number);
}

EventKind KindOf(std::string_view format, std::string_view channel, std::uint32_t number,
                 std::string_view object, std::string_view action, Product told) {
    EventKind kind;
    kind.format = format;
    kind.channel = channel;
    kind.number = number;
    kind.object = object;
    kind.action = action;
    kind.isWindows = IsWindowsFormat(format) || IsOfChannel(channel, number);
    kind.isSysmon =
        kind.isWindows && std::any_of(std::begin(sysmonChannels), std::end(sysmonChannels),
                                      [&](auto each) { return ZEL::EqualsNoCase(channel, each); });
    kind.product = ProductOf(kind);
    if (kind.product == Product::unknown)
        kind.product = told;
    kind.table = TableOf(kind);
    return kind;
}

const MappingRow* UsualRow(std::string_view object, std::string_view action) {
    if (object == "directory")
        object = "file";
    const MappingRow* ofObject = nullptr;
    for (const MappingRow& row : WindowsTable(sysmonChannels[0]).rows) {
        if (row.objectType != object)
            continue;
        if (row.action == action)
            return &row;
        if (ofObject == nullptr)
            ofObject = &row;
    }
    return ofObject;
}

}  // namespace zel
