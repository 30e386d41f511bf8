#include "hunt/fieldplaces.h"

#include <algorithm>

#include "common/asciicase.h"
#include "records/columns.h"
#include "records/sourcefields.h"

// The tables of the formats say what a record's member is made of; here they are read backwards, so
// that a rule finds a field wherever the table has put it, and nothing is mapped twice.
//
// Rules are written in the names of Windows' events and Sysmon's. Records of other senders have the
// same members, so there a field is where Sysmon's event of the same deed would have it.

namespace zel {

namespace {

using Kind = FieldPlace::Kind;

// What every event has, by its names in rules.
struct HeadField {
    std::string_view name;
    FieldPlace place;
};
constexpr HeadField headFields[] = {
    {"EventID", {Kind::source, {}, "event_id"}},
    {"Channel", {Kind::source, {}, "channel"}},
    {"Computer", {Kind::source, {}, "computer"}},
    {"ComputerName", {Kind::source, {}, "computer"}},
    {"Hostname", {Kind::source, {}, "computer"}},
    {"EventRecordID", {Kind::source, {}, "record_id"}},
    {"Provider_Name", {Kind::provider}},
    {"ProviderName", {Kind::provider}},
};
// What every event may have besides, and what is only in `unmapped`.
constexpr std::string_view commonNames[] = {"RuleName",      "UtcTime",
                                            "Level",         "Task",
                                            "Opcode",        "Keywords",
                                            "Version",       "Message",
                                            "TimeCreated",   "Execution_ProcessID",
                                            "Provider_Guid", "EventData",
                                            "Data",          "Security_UserID",
                                            "Severity"};

// What has no member, and how other senders call it in `unmapped`.
struct OtherName {
    std::string_view name;
    std::string_view unmapped;  // "a|b"
};
constexpr OtherName otherNames[] = {
    {"OriginalFileName", "process.pe.original_file_name|dll.pe.original_file_name"},
    {"Description", "process.pe.description|dll.pe.description"},
    {"Product", "process.pe.product|dll.pe.product"},
    {"Company", "process.pe.company|dll.pe.company"},
    {"FileVersion", "process.pe.file_version|dll.pe.file_version"},
    {"CurrentDirectory", "process.working_directory|cwd"},
    {"IntegrityLevel", "process.Ext.token.integrity_level_name|process.integrity"},
};

struct ListedHash {
    std::string_view name;
    std::string_view member;  // of the object that has the list
};
constexpr ListedHash listedHashes[] = {
    {"md5", "md5"}, {"sha256", "sha2"}, {"sha1", {}}, {"imphash", {}}};

class PlaceFinder {
public:
    PlaceFinder(const EventKind& kind, std::string_view field, std::vector<FieldPlace>* places)
        : kind_(kind), field_(field), places_(*places) {}

    void Find() {
        FindHead();
        if (kind_.format == "audit")
            FindInAuditLog();
        if (FindInTable() && kind_.isSysmon && kind_.format != "ecs")
            return;
        if (const MappingRow* const usual = UsualRow(kind_.object, kind_.action)) {
            FindInRow(*usual);
            FindCondition(*usual);
        }
        if (!kind_.isWindows || kind_.format == "ecs")
            FindOtherNames();
    }

private:
    void FindHead() {
        for (const HeadField& head : headFields)
            if (ZEL::EqualsNoCase(field_, head.name))
                places_.push_back(head.place);
        if (kind_.table != nullptr && !kind_.table->time.empty() && IsNamed(kind_.table->time))
            places_.push_back({Kind::time, {}, {}});
    }

    void FindInAuditLog() {
        if (ZEL::EqualsNoCase(field_, "type"))
            places_.push_back({Kind::lineTypes});
        constexpr std::string_view arguments[] = {"a0", "a1", "a2", "a3", "a4",
                                                  "a5", "a6", "a7", "a8", "a9"};
        for (const std::string_view argument : arguments)
            if (ZEL::EqualsNoCase(field_, argument) && kind_.action == "launch")
                places_.push_back({Kind::argument, "target", argument});
    }

    // Whether a row may have made the event.
    bool FindInTable() {
        bool isFound = false;
        if (kind_.table != nullptr)
            for (const MappingRow& row : kind_.table->rows)
                if (row.objectType == kind_.object && row.action == kind_.action &&
                    IsOfNumber(row, kind_.number)) {
                    isFound = true;
                    FindInRow(row);
                }
        return isFound;
    }

    void FindInRow(const MappingRow& row) {
        for (const Member& member : row.target)
            Take("target", member, row.target);
        for (const Member& member : row.actor)
            Take("actor", member, row.actor);
        for (const Member& member : row.result)
            Take("result", member, row.result);
        if (!row.correlation.empty() && IsNamed(row.correlation))
            places_.push_back({Kind::member, {}, "correlation_uid", Conversion::guid});
    }

    void Take(std::string_view role, const Member& member, std::span<const Member> all) {
        using enum Conversion;
        if (member.conversion == constant || member.conversion == registryName)
            return;
        if (member.conversion == sha256 || member.conversion == md5)
            return TakeHash(role, member);
        const std::size_t plus = member.from.find('+');
        if (plus != member.from.npos)
            return TakeJoined(role, member, plus);
        const bool isTold = member.conversion == registryType &&
                            std::any_of(all.begin(), all.end(), [&](const Member& other) {
                                return other.from == member.from && &other != &member;
                            });
        if (!isTold && IsNamed(member.from))
            places_.push_back({Kind::member, role, member.name, member.conversion});
    }

    // A list is kept whole where it has more than the record has places for.
    void TakeHash(std::string_view role, const Member& member) {
        if (IsNamed(member.from))
            places_.push_back({Kind::hashList, role, {}});
        for (const ListedHash& hash : listedHashes)
            if (ZEL::EqualsNoCase(field_, hash.name)) {
                if (hash.member == member.name)
                    places_.push_back({Kind::member, role, member.name});
                else if (hash.member.empty())
                    places_.push_back({Kind::hashOfList, role, hash.name});
            }
    }

    // "path+name": the path is what stands ahead of the name.
    void TakeJoined(std::string_view role, const Member& member, std::size_t plus) {
        if (ZEL::EqualsNoCase(member.from.substr(0, plus), field_))
            places_.push_back({Kind::parent, role, member.name, member.conversion, "name"});
    }

    void FindCondition(const MappingRow& row) {
        for (const Condition& condition : row.conditions)
            if ((condition.test == Is || condition.test == IsNoCase) &&
                condition.wanted.find('|') == condition.wanted.npos && IsNamed(condition.field))
                places_.push_back({Kind::constant, {}, condition.wanted});
    }

    void FindOtherNames() {
        if (ZEL::EqualsNoCase(field_, "User"))
            FindUser();
        for (const OtherName& other : otherNames)
            if (ZEL::EqualsNoCase(field_, other.name))
                AnyOfAlternatives(other.unmapped, [&](std::string_view name) {
                    places_.push_back({Kind::unmapped, {}, name});
                    return false;
                });
    }

    void FindUser() {
        AnyOfAlternatives(FindColumn("user")->place, [&](std::string_view place) {
            constexpr std::string_view unmapped = "unmapped.";
            if (place.starts_with(unmapped))
                places_.push_back({Kind::unmapped, {}, place.substr(unmapped.size())});
            else
                places_.push_back({Kind::member, "target", "user_name", Conversion::plainText});
            return false;
        });
    }

    bool IsNamed(std::string_view alternatives) const {
        return AnyOfAlternatives(alternatives, [&](std::string_view name) {
            return ZEL::EqualsNoCase(RuleNameOf(kind_, name), field_) ||
                   ZEL::EqualsNoCase(name, field_);
        });
    }

    const EventKind& kind_;
    const std::string_view field_;
    std::vector<FieldPlace>& places_;
};

}  // namespace

std::vector<FieldPlace> PlacesOf(const EventKind& kind, std::string_view field) {
    std::vector<FieldPlace> places;
    PlaceFinder(kind, field, &places).Find();
    return places;
}

std::string_view RuleNameOf(const EventKind& kind, std::string_view unmappedName) noexcept {
    constexpr std::string_view data = "winlog.event_data.";
    if (kind.format == "audit")
        return unmappedName.substr(unmappedName.rfind('.') + 1);
    return unmappedName.starts_with(data) ? unmappedName.substr(data.size()) : unmappedName;
}

bool IsOfEveryEvent(std::string_view field) noexcept {
    const auto isField = [&](std::string_view name) { return ZEL::EqualsNoCase(field, name); };
    return std::any_of(std::begin(commonNames), std::end(commonNames), isField) ||
           std::any_of(std::begin(headFields), std::end(headFields),
                       [&](const HeadField& head) { return isField(head.name); });
}

}  // namespace zel
