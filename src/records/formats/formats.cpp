#include "records/formats/formats.h"

#include "records/formats/audit.h"
#include "records/formats/ecs.h"
#include "records/formats/evtx.h"
#include "records/formats/ocsf.h"
#include "records/formats/osquery.h"
#include "records/formats/windowsjson.h"
#include "records/formats/windowsxml.h"

namespace zel {

namespace {

constexpr std::string_view recordFormat = "record";

constexpr Format formats[] = {
    {recordFormat, "the store's own records", nullptr, nullptr},
    {"windows-json", "Windows and Sysmon events as JSON", KnowsWindowsJson, MakeWindowsJson},
    {"windows-xml", "Windows and Sysmon events as XML", KnowsWindowsXml, MakeWindowsXml},
    {"evtx", "Windows event log files", nullptr, nullptr, KnowsEvtx, MakeEvtx},
    {"ecs", "Elastic Common Schema", KnowsEcs, MakeEcs},
    {"ocsf", "Open Cybersecurity Schema Framework 1.x", KnowsOcsf, MakeOcsf},
    {"osquery", "results of osquery's event tables", KnowsOsquery, MakeOsquery},
    {"audit", "Linux audit log", KnowsAudit, MakeAudit},
};

}  // namespace

std::span<const Format> Formats() {
    return formats;
}

const Format* FindFormat(std::string_view name) {
    for (const Format& format : Formats())
        if (format.name == name)
            return &format;
    return nullptr;
}

const Format* FindFileFormat(std::string_view head) {
    for (const Format& format : Formats())
        if (format.knowsFile != nullptr && format.knowsFile(head))
            return &format;
    return nullptr;
}

bool IsRecordFormat(const Format& format) {
    return format.name == recordFormat;
}

}  // namespace zel
