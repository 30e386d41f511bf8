#include "zelstore/schema/eventfields.h"

#include <boost/container/small_vector.hpp>
#include <type_traits>
#include <typeinfo>

#include "common/asciicase.h"
#include "common/trace.h"
#include "zelstore/schema/objectclasses.h"

// Which part of an event gives which field of a key.
//
// The same extractors serve records and queries, so that a question is put in the very words in
// which the answer was stored. They differ in two things. What collects the values: a record's key
// takes the first value in byte order (FactSink), a query keeps each with its operator
// (ConditionSink). And paths: those of a query are expanded into all that they stand for on the
// machine, those of a record stand as the sensor wrote them.
//
// An extractor adds values to a sink. It gives `absent` when the event has no source for the field,
// which leaves the field out; a source without values leaves an empty list of conditions, which no
// row fulfils. Names of the vocabulary (object type, action) are compared with their case, all else
// without unless the operator says so.
//
// Wildcards: under `equals`, * and ? in paths, addresses and urls make a pattern of the condition.
// The operator is one for the whole list, so from the first value with a wildcard on all later ones
// are patterns as they stand. Whoever writes documents has to know (zel warns), and stored queries
// depend on it. The rule holds for records too: a path with ? in it is stored as a pattern's text.

namespace ZEL::Schema {

namespace {

constexpr HRESULT absent = hr::nothingToDo;

// Takes the values of one field.
class ValueSink {
public:
    virtual void Add(std::string_view value, const Operator& op) = 0;

protected:
    ~ValueSink() = default;
};

struct Extraction {
    const Event& event;
    bool forQuery;
    IPathExpander* expander;
    TextCheck check = TextCheck::needed;
};

// Text that is UTF-8 already, without a look at it.
[[maybe_unused]] std::optional<std::string_view> AsItIs(std::string_view text) {
    return text;
}
[[maybe_unused]] std::optional<std::string_view> AsItIs(std::wstring_view) {
    return std::nullopt;
}

bool AddText(const Extraction& in, ValueSink& sink, TextView value, const Operator& op,
             bool asPattern = false) {
    if (asPattern)
        return AddText(in, sink, WildcardToPattern(Text(value)), op);
    std::string buffer;
    std::optional<std::string_view> utf8;
    if (in.check == TextCheck::done)
        utf8 = AsItIs(value);
    if (!utf8)
        utf8 = ToUtf8(value, buffer);
    if (utf8)
        sink.Add(*utf8, op);
    return utf8.has_value();
}

Operator OperatorOf(const Field<Operator>& op) {
    return op ? *op : Operator(operatorEquals, false);
}

// For what comes from the vocabulary.
const Operator exactly(operatorEquals, true);

HRESULT AddNames(const Extraction& in, ValueSink& sink, const Text& name) {
    return AddText(in, sink, name, exactly) ? hr::ok : hr::unexpected;
}

HRESULT ObjectTypeField(const Extraction& in, ValueSink& sink) {
    if (!in.event.target)
        return absent;
    return AddNames(in, sink, in.event.target->GetObjectTypeName());
}

HRESULT ActionField(const Extraction& in, ValueSink& sink) {
    if (in.event.action.empty())
        return absent;
    for (const std::int32_t action : in.event.action) {
        const HRESULT result = AddNames(in, sink, ActionTypes().Name(action));
        if (Failed(result))
            return result;
    }
    return hr::ok;
}

HRESULT TypeIdField(const Extraction& in, ValueSink& sink) {
    if (!in.event.type_id)
        return absent;
    const Operator op = OperatorOf(in.event.type_id->op);
    for (const std::uint32_t number : in.event.type_id->values)
        sink.Add(std::to_string(number), op);
    return hr::ok;
}

HRESULT PlainField(const Extraction& in, const StringPair* pair, ValueSink& sink) {
    if (pair == nullptr)
        return absent;
    const Operator op = OperatorOf(pair->op);
    for (const Text& value : pair->values)
        if (!AddText(in, sink, value, op))
            return hr::unexpected;
    return hr::ok;
}

// Wildcards under `equals` turn the condition into a pattern. The change stays for the values
// behind, which are then taken for patterns as they stand.
bool BecomesPattern(const Text& value, Operator& op) {
    if (op.op != operatorEquals || !HasWildcard(value))
        return false;
    op.op = operatorFitsPattern;
    return true;
}

HRESULT WildcardField(const Extraction& in, const StringPair* pair, ValueSink& sink) {
    if (pair == nullptr)
        return absent;
    Operator op = OperatorOf(pair->op);
    for (const Text& value : pair->values) {
        const bool converts = BecomesPattern(value, op);
        if (!AddText(in, sink, value, op, converts))
            return hr::unexpected;
    }
    return hr::ok;
}

// The concrete paths that one of a query stands for. A file path that can't be expanded stands for
// itself; a registry path that can't ends the query, since it would silently find less than it asks
// for.
HRESULT ExpandedPaths(const Extraction& in, bool isRegistry, const Text& value, bool isPattern,
                      std::set<Text>& out) {
    const HRESULT result = isRegistry ? in.expander->ExpandRegistryPath(value, isPattern, out)
                                      : in.expander->ExpandPath(value, isPattern, out);
    if (!Failed(result) || isRegistry)
        return result;
    out = {value};
    return hr::ok;
}

HRESULT PathField(const Extraction& in, const ZelSchemaParser* object, bool isRegistry,
                  ValueSink& sink) {
    const StringPair* const pair = object != nullptr ? object->GetPath() : nullptr;
    if (pair == nullptr || !in.forQuery)
        return WildcardField(in, pair, sink);
    Operator op = OperatorOf(pair->op);
    for (const Text& value : pair->values) {
        std::set<Text> variants;
        const HRESULT result =
            ExpandedPaths(in, isRegistry, value, op.op == operatorFitsPattern, variants);
        if (Failed(result))
            return result;
        const bool converts = BecomesPattern(value, op);
        for (const Text& variant : variants)
            if (!AddText(in, sink, variant, op, converts))
                return hr::unexpected;
    }
    return hr::ok;
}

const StringPair* Sha2(const std::unique_ptr<ZelSchemaParser>& object) {
    return object ? object->GetSha2() : nullptr;
}

// Nothing derives from the classes asked for, so that no walk through type information is needed.
template <typename T>
const T* As(const std::unique_ptr<ZelSchemaParser>& object) {
    static_assert(std::is_final_v<T>);
    const ZelSchemaParser* const any = object.get();
    return any != nullptr && typeid(*any) == typeid(T) ? static_cast<const T*>(any) : nullptr;
}

HRESULT ActorHashField(const Extraction& in, ValueSink& sink) {
    return PlainField(in, Sha2(in.event.actor), sink);
}

HRESULT ActorPathField(const Extraction& in, ValueSink& sink) {
    return PathField(in, in.event.actor.get(), false, sink);
}

HRESULT ActorUidField(const Extraction& in, ValueSink& sink) {
    const Process* const process = As<Process>(in.event.actor);
    return PlainField(in, process != nullptr ? process->GetUid() : nullptr, sink);
}

HRESULT TargetHashField(const Extraction& in, ValueSink& sink) {
    return PlainField(in, Sha2(in.event.target), sink);
}

// The registry has names of its own for what several paths stand for.
HRESULT TargetPathField(const Extraction& in, ValueSink& sink) {
    const ZelSchemaParser* const target = in.event.target.get();
    const std::int32_t type = target != nullptr ? target->GetObjectTypeId() : objectType::unknown;
    const bool isRegistry = type == objectType::regKey || type == objectType::regValue;
    return PathField(in, target, isRegistry, sink);
}

HRESULT SourceIpField(const Extraction& in, ValueSink& sink) {
    const Network* const network = As<Network>(in.event.target);
    return WildcardField(in, network != nullptr ? network->GetSrcIp() : nullptr, sink);
}

HRESULT DestinationIpField(const Extraction& in, ValueSink& sink) {
    const Network* const network = As<Network>(in.event.target);
    return WildcardField(in, network != nullptr ? network->GetDstIp() : nullptr, sink);
}

// Of kernel objects alone; one that tells no type counts as number 1.
HRESULT TargetTypeIdField(const Extraction& in, ValueSink& sink) {
    const KernelObject* const object = As<KernelObject>(in.event.target);
    if (object == nullptr)
        return absent;
    const Operator op(operatorEquals, false);
    if (object->type_ids.empty())
        sink.Add("1", op);
    for (const std::uint32_t number : object->type_ids)
        sink.Add(std::to_string(number), op);
    return hr::ok;
}

// Letter case of a correlation identifier never matters, so all are kept in upper case.
HRESULT CorrelationField(const Extraction& in, ValueSink& sink) {
    if (!in.event.correlation_uid)
        return absent;
    const Operator op = OperatorOf(in.event.correlation_uid->op);
    for (const Text& value : in.event.correlation_uid->values) {
        // Each record may have one, whose length is that of a GUID.
        boost::container::small_vector<utility::char_t, 64> upper(value.begin(), value.end());
        for (utility::char_t& c : upper)
            c = ToUpperAscii(c);
        if (!AddText(in, sink, TextView(upper.data(), upper.size()), op))
            return hr::unexpected;
    }
    return hr::ok;
}

HRESULT UrlField(const Extraction& in, ValueSink& sink) {
    const Url* const url = As<Url>(in.event.target);
    return WildcardField(in, url != nullptr ? url->GetText() : nullptr, sink);
}

struct Row {
    HRESULT (*extract)(const Extraction&, ValueSink&);
    KeyField field;
    // No record's key has it, and there is nothing in it that could be refused.
    bool forQueriesAlone = false;
};

// What an event itself gives to a key, in the order in which it is worked out.
constexpr Row eventFields[] = {
    {ObjectTypeField, KeyField::objectType},
    {ActionField, KeyField::action},
    {TypeIdField, KeyField::typeId, true},
    {ActorHashField, KeyField::actorHash},
    {ActorPathField, KeyField::actorPathName},
    {ActorUidField, KeyField::actorUid},
    {TargetHashField, KeyField::targetHash},
    {TargetPathField, KeyField::targetPathName},
    {SourceIpField, KeyField::targetSourceIp},
    {DestinationIpField, KeyField::targetDestinationIp},
    {TargetTypeIdField, KeyField::targetTypeId, true},
    {CorrelationField, KeyField::correlationUid},
    {UrlField, KeyField::targetUrlText},
};

// The conditions of a query's field.
class ConditionSink final : public ValueSink {
public:
    explicit ConditionSink(IPathExpander* expander) : expander_(expander) {}
    void Add(std::string_view value, const Operator& op) override {
        if (expander_ != nullptr)
            expander_->OnValue();
        conditions.emplace(value, op);  // a repeated value keeps its first operator
    }
    std::map<std::string, Operator> conditions;

private:
    IPathExpander* const expander_;
};

// The one fact of a record's field.
class FactSink final : public ValueSink {
public:
    FactSink(RecordFields& fields, KeyField field) : fields_(fields), field_(field) {}
    void Add(std::string_view value, const Operator&) override { fields_.Offer(field_, value); }

private:
    RecordFields& fields_;
    const KeyField field_;
};

}  // namespace

HRESULT ExtractKeyFields(const Event& event, bool forQuery, IPathExpander* expander,
                         FilterMap& out) {
    const Extraction in{event, forQuery, expander};
    for (const Row& row : eventFields) {
        ConditionSink sink(expander);
        const HRESULT result = row.extract(in, sink);
        if (Failed(result))
            return wm::Traced(result, wm::message::keyFieldNotMade, KeyFieldName(row.field));
        if (result != absent)
            out[std::string(KeyFieldName(row.field))] = std::move(sink.conditions);
    }
    if (out.empty())
        wm::Trace(wm::message::noKeyFields);
    return hr::ok;
}

void RecordFields::Clear() noexcept {
    texts_.clear();
    for (Place& place : places_)
        place = Place();
}

// A smaller value that comes later is put behind the former one, whose place is lost: records
// mostly have one value for a field.
void RecordFields::Offer(KeyField field, std::string_view value) {
    const auto held = Find(field);
    if (held && *held <= value)
        return;
    places_[IndexOf(field)] = {texts_.size(), value.size()};
    texts_.append(value);
}

HRESULT ExtractRecordFields(const Event& event, TextCheck check, RecordFields& out) {
    const Extraction in{event, false, nullptr, check};
    for (const Row& row : eventFields) {
        if (row.forQueriesAlone)
            continue;
        FactSink sink(out, row.field);
        const HRESULT result = row.extract(in, sink);
        if (Failed(result))
            return wm::Traced(result, wm::message::keyFieldNotMade, KeyFieldName(row.field));
    }
    return hr::ok;
}

// Two searches for one character each are several times faster than one for either.
bool HasWildcard(const Text& value) noexcept {
    return value.find(ZEL_TEXT('*')) != Text::npos || value.find(ZEL_TEXT('?')) != Text::npos;
}

Text WildcardToPattern(const Text& value) {
    Text pattern;
    pattern.reserve(value.size() * 2);
    for (const utility::char_t c : value) {
        if (c == ZEL_TEXT('?')) {
            pattern += ZEL_TEXT(".{1}");
        } else if (c == ZEL_TEXT('*')) {
            pattern += ZEL_TEXT(".*");
        } else {
            if (Text(ZEL_TEXT("\\.$^{}[]()|+")).find(c) != Text::npos)
                pattern += ZEL_TEXT('\\');
            pattern += c;
        }
    }
    return pattern;
}

}  // namespace ZEL::Schema
