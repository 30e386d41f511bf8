#include "hunt/ruleevent.h"

#include <simdjson.h>

#include <algorithm>
#include <charconv>
#include <cstring>

#include "common/asciicase.h"
#include "hunt/valueforms.h"
#include "hunt/vocabularytables.h"
#include "records/conversions.h"

// An event is parsed once. What it is (format, channel, number, object, action) is looked up among
// the kinds that came before, and with the kind stands which sources mean it and, for each field
// that was asked for, where it is. So of a new event only the values are new; all else is kept, and
// once a few events of each kind have come nothing is allocated any more.

namespace zel {

namespace {

namespace dom = simdjson::dom;
using Kind = FieldPlace::Kind;
using Values = std::vector<std::string_view>;

// Past these what is kept is given back, so that no text can make it stay large.
constexpr std::size_t largestKept = 4U << 20;  // bytes
constexpr std::size_t mostKinds = 512;
constexpr std::size_t mostKnownFields = std::size_t{1} << 20U;  // of all kinds together

// The member of that name; none for anything but an object that has it.
std::optional<dom::element> MemberOf(const std::optional<dom::element>& object,
                                     std::string_view name) {
    dom::element member;
    if (!object || object->at_key(name).get(member) != simdjson::SUCCESS)
        return std::nullopt;
    return member;
}

std::string_view TextOf(const std::optional<dom::element>& value) {
    std::string_view text;
    if (value && value->get_string().get(text) != simdjson::SUCCESS)
        text = {};
    return text;
}

// A kind that came before, or the first of its kind.
struct KnownKind {
    struct Field {
        bool isKnown = false;
        std::vector<FieldPlace> places;
    };

    EventKind kind;
    std::vector<bool> sources;  // by SourceId: whether they mean it
    std::vector<Field> fields;  // by FieldId
};

struct TextHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const noexcept {
        return std::hash<std::string_view>()(text);
    }
};

}  // namespace

struct RuleEvent::State {
    // The values of one field, good when `event` is this one's number.
    struct Slot {
        std::uint64_t event = 0;
        Values values;
    };
    struct Unmapped {
        std::string_view name;  // that rules use
        std::string_view fullName;
        dom::element value;
    };

    explicit State(const RuleVocabulary::Tables& all) : tables(all) {}

    bool Parse(std::string_view event);
    KnownKind& Known();
    KnownKind& KindNamed(std::string_view format, std::string_view channel, std::uint32_t number,
                         std::string_view object);
    Product ToldProduct(std::string_view format) const;
    void TakeUnmapped();
    void Find(FieldId field, Values* values);
    // The plain values of what `value` is or has in it.
    void Append(dom::element value, Values* values);
    void AppendAll(dom::array array, Values* values);
    void AppendAll(dom::object object, Values* values);
    bool AppendUnmapped(std::string_view name, bool isExact, Values* values);
    void AppendAt(const FieldPlace& place, Values* values);
    void AppendForms(const FieldPlace& place, std::size_t from, Values* values);
    void AppendParent(const FieldPlace& place, Values* values);
    void AppendHashList(const FieldPlace& place, Values* values);
    void AppendHash(std::string_view algorithm, Values* values);
    void AppendProvider(Values* values);
    void AppendTime(Values* values);
    void AppendArgument(const FieldPlace& place, Values* values);
    void AppendLineTypes(Values* values);
    void CollectAny();
    std::string_view First(std::string_view role, std::string_view member);
    std::optional<dom::element> At(std::string_view role, std::string_view member) const;

    const RuleVocabulary::Tables& tables;
    dom::parser parser;
    std::string text;  // with room for the parser behind it
    std::uint64_t number = 0;
    std::optional<dom::element> root, artifacts, source;
    std::string_view action;
    std::vector<Unmapped> unmapped;
    bool hasUnmapped = false;  // `unmapped` is of this event
    std::unordered_map<std::string, KnownKind, TextHash, std::equal_to<>> kinds;
    std::string kindName;
    KnownKind* kind = nullptr;
    std::vector<Slot> slots;     // by FieldId
    SourceFields keeper;         // of texts that were made
    Values found;                // for the moment
    std::uint64_t anyEvent = 0;  // whose values `any` has
    Values any;
};

bool RuleEvent::State::Parse(std::string_view event) {
    if (parser.capacity() > largestKept && event.size() <= largestKept) {
        parser = dom::parser();
        std::string().swap(text);
    }
    if (text.size() < event.size() + simdjson::SIMDJSON_PADDING)
        text.resize(event.size() + simdjson::SIMDJSON_PADDING);
    std::copy(event.begin(), event.end(), text.begin());
    dom::element parsed;
    if (parser.parse(text.data(), event.size(), false).get(parsed) != simdjson::SUCCESS ||
        !parsed.is_object())
        return false;
    root = parsed;
    artifacts = MemberOf(root, "artifacts");
    source = MemberOf(root, "source");
    return true;
}

// Of several actions the key has the first in byte order, and so the event is one of that.
KnownKind& RuleEvent::State::Known() {
    if (kind != nullptr)
        return *kind;
    found.clear();
    if (const auto actions = MemberOf(root, "action"))
        Append(*actions, &found);
    action = found.empty() ? std::string_view() : *std::min_element(found.begin(), found.end());
    std::uint64_t event = 0;
    if (const auto told = MemberOf(source, "event_id"))
        if (told->get_uint64().get(event) != simdjson::SUCCESS)
            event = 0;
    kind = &KindNamed(TextOf(MemberOf(source, "format")), TextOf(MemberOf(source, "channel")),
                      event > UINT32_MAX ? 0 : static_cast<std::uint32_t>(event),
                      TextOf(MemberOf(MemberOf(artifacts, "target"), "object_type")));
    return *kind;
}

KnownKind& RuleEvent::State::KindNamed(std::string_view format, std::string_view channel,
                                       std::uint32_t event, std::string_view object) {
    char digits[12];
    const auto end = std::to_chars(std::begin(digits), std::end(digits), event).ptr;
    const Product told = ToldProduct(format);
    kindName.assign(format).append(1, '\0').append(channel).append(1, '\0');
    kindName.append(digits, end).append(1, '\0').append(object).append(1, '\0').append(action);
    kindName.append(1, '\0').append(1, static_cast<char>(told));
    if (const auto known = kinds.find(std::string_view(kindName)); known != kinds.end())
        return known->second;
    if (kinds.size() >= mostKinds || kinds.size() * tables.fields.size() > mostKnownFields)
        kinds.clear();
    KnownKind& made = kinds[kindName];
    made.kind = KindOf(format, channel, event, object, action, told);
    for (const auto& asked : tables.sources)
        made.sources.push_back(asked.meaning.Means(made.kind));
    made.fields.resize(tables.fields.size());
    return made;
}

// Formats that carry events of any system have a field for it.
Product RuleEvent::State::ToldProduct(std::string_view format) const {
    if (format != "ecs" && format != "ocsf")
        return Product::unknown;
    const auto members = MemberOf(root, "unmapped");
    for (const std::string_view name :
         {"host.os.type", "host.os.platform", "host.os.family", "device.os.type"})
        if (const auto told = ProductNamed(TextOf(MemberOf(members, name)));
            told != Product::unknown)
            return told;
    return Product::unknown;
}

void RuleEvent::State::TakeUnmapped() {
    if (hasUnmapped)
        return;
    hasUnmapped = true;
    unmapped.clear();
    dom::object members;
    const auto value = MemberOf(root, "unmapped");
    if (!value || value->get_object().get(members) != simdjson::SUCCESS)
        return;
    const EventKind& of = Known().kind;
    for (const auto& [name, member] : members)
        unmapped.push_back({RuleNameOf(of, name), name, member});
}

// What stands in `unmapped` is the source's own text, so it goes ahead of what was made of it. A
// name in another letter case may be another field, and comes last. Fields of an audit log's lines
// may share a name, and all of them are meant.
void RuleEvent::State::Find(FieldId field, Values* values) {
    KnownKind& of = Known();
    KnownKind::Field& known = of.fields[field];
    const std::string& name = tables.fields[field];
    if (!known.isKnown) {
        known.places = PlacesOf(of.kind, name);
        known.isKnown = true;
    }
    const bool isAudit = of.kind.format == "audit";
    if (AppendUnmapped(name, true, values) && !isAudit)
        return;
    for (const FieldPlace& place : known.places) {
        AppendAt(place, values);
        if (!values->empty() && !isAudit)
            return;
    }
    if (values->empty())
        AppendUnmapped(name, false, values);
}

void RuleEvent::State::Append(dom::element value, Values* values) {
    using Type = dom::element_type;
    switch (value.type()) {
        case Type::STRING:
            values->push_back(value.get_string().value_unsafe());
            return;
        case Type::BOOL:
            values->push_back(value.get_bool().value_unsafe() ? "true" : "false");
            return;
        case Type::ARRAY:
            AppendAll(value.get_array().value_unsafe(), values);
            return;
        case Type::OBJECT:
            AppendAll(value.get_object().value_unsafe(), values);
            return;
        case Type::NULL_VALUE:
            return;
        default:
            values->push_back(keeper.Keep(simdjson::minify(value)));
    }
}

void RuleEvent::State::AppendAll(dom::array array, Values* values) {
    for (const dom::element each : array)
        Append(each, values);
}

void RuleEvent::State::AppendAll(dom::object object, Values* values) {
    for (const auto& [name, member] : object)
        Append(member, values);
}

bool RuleEvent::State::AppendUnmapped(std::string_view name, bool isExact, Values* values) {
    TakeUnmapped();
    const std::size_t before = values->size();
    for (const Unmapped& each : unmapped)
        if (each.name.size() == name.size() &&
            (isExact ? each.name == name : ZEL::EqualsNoCase(each.name, name)))
            Append(each.value, values);
    return values->size() > before;
}

std::optional<dom::element> RuleEvent::State::At(std::string_view role,
                                                 std::string_view member) const {
    return MemberOf(role.empty() ? root : MemberOf(artifacts, role), member);
}

void RuleEvent::State::AppendAt(const FieldPlace& place, Values* values) {
    const std::size_t from = values->size();
    switch (place.kind) {
        case Kind::member:
            if (const auto value = At(place.role, place.member))
                Append(*value, values);
            return AppendForms(place, from, values);
        case Kind::parent:
            AppendParent(place, values);
            return AppendForms(place, from, values);
        case Kind::hashList:
            return AppendHashList(place, values);
        case Kind::hashOfList:
            return AppendHash(place.member, values);
        case Kind::source:
            if (const auto value = MemberOf(source, place.member))
                Append(*value, values);
            return;
        case Kind::provider:
            return AppendProvider(values);
        case Kind::time:
            return AppendTime(values);
        case Kind::unmapped:
            AppendUnmapped(place.member, true, values);
            return;
        case Kind::argument:
            return AppendArgument(place, values);
        case Kind::lineTypes:
            return AppendLineTypes(values);
        case Kind::constant:
            values->push_back(place.member);
            return;
    }
}

// In place of the values from there on. Plain texts have but one form, and so have ports: nobody
// writes them as 0x1bb, and an end of that would be a wrong hit.
void RuleEvent::State::AppendForms(const FieldPlace& place, std::size_t from, Values* values) {
    const bool isPlain =
        place.conversion == Conversion::text || place.conversion == Conversion::plainText;
    if (isPlain || place.member.ends_with("_port"))
        return;
    found.assign(values->begin() + static_cast<std::ptrdiff_t>(from), values->end());
    values->resize(from);
    for (const std::string_view stored : found)
        zel::AppendForms(place.conversion, stored, keeper, values);
}

// The first value of a member.
std::string_view RuleEvent::State::First(std::string_view role, std::string_view member) {
    found.clear();
    if (const auto value = At(role, member))
        Append(*value, &found);
    return found.empty() ? std::string_view() : found.front();
}

void RuleEvent::State::AppendParent(const FieldPlace& place, Values* values) {
    std::string_view path = First(place.role, place.member);
    const std::string_view name = First(place.role, place.other);
    if (path.size() > name.size() && path.ends_with(name) &&
        path[path.size() - name.size() - 1] == '\\')
        path.remove_suffix(name.size() + 1);
    if (!path.empty())
        values->push_back(path);
}

void RuleEvent::State::AppendHashList(const FieldPlace& place, Values* values) {
    const std::string_view md5 = First(place.role, "md5");
    const std::string_view list = HashList(md5, First(place.role, "sha2"), keeper);
    if (!list.empty())
        values->push_back(list);
}

void RuleEvent::State::AppendHash(std::string_view algorithm, Values* values) {
    found.clear();
    for (const std::string_view list : {"Hashes", "Hash"})
        AppendUnmapped(list, false, &found);
    for (const std::string_view list : found)
        if (const auto hash = HashIn(list, algorithm))
            values->push_back(*hash);
}

// Collectors name it differently, and some not at all; Sysmon's channels tell it.
void RuleEvent::State::AppendProvider(Values* values) {
    for (const std::string_view name :
         {"SourceName", "source_name", "winlog.provider_name", "Provider_Name", "ProviderName",
          "System.Provider.Name", "System.Provider.@Name", "System.Provider.#attributes.Name",
          "Event.System.Provider.Name", "Event.System.Provider.@Name",
          "Event.System.Provider.#attributes.Name", "Provider", "event.provider"})
        if (AppendUnmapped(name, true, values))
            return;
    const std::string_view channel = TextOf(MemberOf(source, "channel"));
    if (Known().kind.isSysmon)
        values->push_back(channel.substr(0, channel.find('/')));
}

// As sources write it: with a blank, and without a zone.
void RuleEvent::State::AppendTime(Values* values) {
    const std::string_view time = First({}, "begin_time");
    if (time.size() < 11)
        return;
    const std::string_view clock =
        time.substr(11, time.size() - 11 - (time.ends_with('Z') ? 1 : 0));
    values->push_back(keeper.Keep(keeper.Keep(time.substr(0, 10), " "), clock));
}

// An argument that is not in `unmapped` has no blank in it.
void RuleEvent::State::AppendArgument(const FieldPlace& place, Values* values) {
    const std::string_view name = place.member;
    if (std::any_of(unmapped.begin(), unmapped.end(), [&](const Unmapped& each) {
            return each.name == name && each.fullName.starts_with("EXECVE.");
        }))
        return;
    std::string_view line = First(place.role, "cmd_line");
    for (char n = '0'; n < name[1] && !line.empty(); ++n)
        line.remove_prefix(std::min(line.find(' '), line.size() - 1) + 1);
    if (!line.empty())
        values->push_back(line.substr(0, line.find(' ')));
}

void RuleEvent::State::AppendLineTypes(Values* values) {
    for (const Unmapped& each : unmapped) {
        const std::string_view type = each.fullName.substr(0, each.fullName.find('.'));
        if (type.size() < each.fullName.size() &&
            std::find(values->begin(), values->end(), type) == values->end())
            values->push_back(type);
    }
}

RuleEvent::RuleEvent(const RuleVocabulary& vocabulary)
    : state_(std::make_unique<State>(*vocabulary.tables_)) {}

RuleEvent::~RuleEvent() = default;

bool RuleEvent::Read(std::string_view event) {
    ++state_->number;
    state_->kind = nullptr;
    state_->hasUnmapped = false;
    state_->keeper.Clear();
    return state_->Parse(event);
}

bool RuleEvent::IsOf(SourceId source) {
    return state_->Known().sources[source];
}

std::span<const std::string_view> RuleEvent::ValuesOf(FieldId field) {
    if (state_->slots.size() <= field)
        state_->slots.resize(state_->tables.fields.size());
    State::Slot& slot = state_->slots[field];
    if (slot.event != state_->number) {
        slot.event = state_->number;
        slot.values.clear();
        state_->Find(field, &slot.values);
    }
    return slot.values;
}

// What the record says in its own words (kinds, numbers of types, its place in the input) no source
// has written.
void RuleEvent::State::CollectAny() {
    anyEvent = number;
    any.clear();
    for (const std::string_view role : {"actor", "target", "result"}) {
        dom::object members;
        const auto object = MemberOf(artifacts, role);
        if (!object || object->get_object().get(members) != simdjson::SUCCESS)
            continue;
        for (const auto& [name, member] : members)
            if (name != "object_type")
                Append(member, &any);
    }
    for (const auto& value : {MemberOf(root, "unmapped"), MemberOf(source, "channel"),
                              MemberOf(source, "event_id"), MemberOf(source, "computer")})
        if (value)
            Append(*value, &any);
}

bool RuleEvent::AnyValue(const std::function<bool(std::string_view)>& test) {
    if (state_->anyEvent != state_->number)
        state_->CollectAny();
    return std::any_of(state_->any.begin(), state_->any.end(), test);
}

std::string_view RuleEvent::Time() {
    return state_->First({}, "begin_time");
}

}  // namespace zel
