#include <algorithm>

#include "common/asciicase.h"
#include "hunt/valueforms.h"
#include "hunt/vocabularytables.h"
#include "records/columns.h"

// What is said here of a source is worked out on examples: one event of each kind that a table of
// the formats makes for it.

namespace zel {

namespace {

using Kind = FieldPlace::Kind;

bool IsSamePlace(const FieldPlace& a, const FieldPlace& b) {
    return a.kind == b.kind && a.role == b.role && a.member == b.member &&
           a.conversion == b.conversion;
}

// The dotted name of a member in a record; of a pair the name that columns use.
std::string RecordPlace(const FieldPlace& place) {
    if (place.role.empty())
        return std::string(place.member) + ".value";
    std::string name = "artifacts.";
    name.append(place.role).append(".").append(place.member);
    const bool isPlain = place.conversion == Conversion::plainText ||
                         place.conversion == Conversion::plainNumber ||
                         place.conversion == Conversion::plainNumbers ||
                         place.conversion == Conversion::registryType;
    return isPlain ? name : name + ".value";
}

const Column* ColumnOf(std::string_view recordPlace) {
    for (const Column& column : Columns())
        if (AnyOfAlternatives(column.place, [&](auto place) { return place == recordPlace; }))
            return &column;
    return nullptr;
}

std::string SourcePlace(std::string_view member) {
    return "source." + std::string(member);
}

FieldStanding StandingAt(const FieldPlace& place) {
    switch (place.kind) {
        case Kind::member:
        case Kind::parent: {
            const Column* const column = ColumnOf(RecordPlace(place));
            return column != nullptr && column->from == ColumnFrom::key ? FieldStanding::key
                                                                        : FieldStanding::column;
        }
        case Kind::time:
            return FieldStanding::key;
        case Kind::source:
        case Kind::provider:
        case Kind::constant:
            return FieldStanding::column;
        default:
            return FieldStanding::kept;
    }
}

std::string NameOf(const FieldPlace& place, const std::string& field) {
    switch (place.kind) {
        case Kind::member:
        case Kind::parent: {
            const std::string name = RecordPlace(place);
            const Column* const column = ColumnOf(name);
            return column != nullptr ? std::string(column->name) : name;
        }
        case Kind::time:
            return "time";
        case Kind::source:
            return SourcePlace(place.member);
        case Kind::provider:
            return SourcePlace("channel");
        case Kind::constant:
            return "action";
        case Kind::hashOfList:
            return "unmapped.Hashes";
        case Kind::unmapped:
            return "unmapped." + std::string(place.member);
        default:
            return "unmapped." + field;
    }
}

// Names of Sysmon's kind begin in upper case; those of other senders' own fields don't, and what
// they have is not known.
bool MayBeKept(const SourceMeaning& meaning, const std::string& field) {
    const bool isSysmons = !meaning.numbers.empty() && !meaning.asksAuditLog &&
                           std::find(meaning.channels.begin(), meaning.channels.end(),
                                     sysmonChannels[0]) != meaning.channels.end();
    if (!isSysmons || IsOfEveryEvent(field))
        return true;
    if (meaning.isShared && (field[0] < 'A' || field[0] > 'Z' || field.find('.') != field.npos))
        return true;
    return std::any_of(meaning.numbers.begin(), meaning.numbers.end(), [&](std::uint32_t number) {
        const auto names = SysmonFields(number);
        return std::any_of(names.begin(), names.end(),
                           [&](std::string_view name) { return ZEL::EqualsNoCase(field, name); });
    });
}

}  // namespace

RuleVocabulary::RuleVocabulary(VocabularyOptions options) : tables_(std::make_unique<Tables>()) {
    tables_->options = options;
}

RuleVocabulary::~RuleVocabulary() = default;

bool RuleVocabulary::AddSource(const LogSource& source, SourceId* id, std::string* problem) {
    SourceMeaning meaning;
    if (!FindSource(source, tables_->options.asksAuditLog, &meaning, problem))
        return false;
    auto& sources = tables_->sources;
    const auto known = std::find_if(sources.begin(), sources.end(),
                                    [&](const auto& each) { return each.meaning == meaning; });
    *id = static_cast<SourceId>(known - sources.begin());
    if (known == sources.end())
        sources.push_back({meaning, meaning.Examples(), {}});
    return true;
}

FieldId RuleVocabulary::AddField(std::string_view name) {
    std::string folded(name);
    ZEL::MakeUpperAscii(folded);
    const auto [found, isNew] =
        tables_->numbers.emplace(std::move(folded), static_cast<FieldId>(tables_->fields.size()));
    if (isNew)
        tables_->fields.emplace_back(name);
    return found->second;
}

std::size_t RuleVocabulary::Sources() const noexcept {
    return tables_->sources.size();
}

std::size_t RuleVocabulary::Fields() const noexcept {
    return tables_->fields.size();
}

std::string_view RuleVocabulary::FieldName(FieldId field) const noexcept {
    return tables_->fields[field];
}

const RuleVocabulary::Tables::Places& RuleVocabulary::Tables::PlacesIn(SourceId source,
                                                                       FieldId field) {
    Source& asked = sources[source];
    asked.fields.resize(fields.size());
    Places& places = asked.fields[field];
    if (places.isKnown)
        return places;
    places.isKnown = true;
    for (const EventKind& example : asked.examples)
        for (const FieldPlace& place : PlacesOf(example, fields[field])) {
            if (!places.usual && example.isWindows == asked.examples.front().isWindows)
                places.usual = place;
            if (std::none_of(places.all.begin(), places.all.end(),
                             [&](const auto& each) { return IsSamePlace(each, place); }))
                places.all.push_back(place);
        }
    if (places.usual)
        places.standing = StandingAt(*places.usual);
    else if (!places.all.empty() || MayBeKept(asked.meaning, fields[field]))
        places.standing = FieldStanding::kept;
    return places;
}

FieldStanding RuleVocabulary::StandingOf(SourceId source, FieldId field) const {
    return tables_->PlacesIn(source, field).standing;
}

std::string RuleVocabulary::PlaceOf(SourceId source, FieldId field) const {
    const Tables::Places& places = tables_->PlacesIn(source, field);
    if (places.usual)
        return NameOf(*places.usual, tables_->fields[field]);
    return places.standing == FieldStanding::never ? "" : "unmapped." + tables_->fields[field];
}

std::vector<Narrowing> RuleVocabulary::NarrowingsOf(SourceId source) const {
    return tables_->sources[source].meaning.Narrowings();
}

// Under its own name in `unmapped` a field has the source's text, of which all is certain. Of
// several places each takes its share of what the ones before it have left.
std::string_view RuleVocabulary::CertainPart(SourceId source, FieldId field,
                                             std::string_view part) const {
    for (const FieldPlace& place : tables_->PlacesIn(source, field).all)
        part = CertainPiece(place, part);
    return part;
}

}  // namespace zel
