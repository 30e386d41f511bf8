#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "hunt/rule.h"
#include "questions/narrowing.h"

namespace zel {

// Which events a rule's log source stands for. Sources that stand for the same are equal.
using SourceId = std::uint32_t;
// A name of a field in rules; names that differ in letter case alone are one.
using FieldId = std::uint32_t;

// Whether the records of a source have a field.
enum class FieldStanding : std::uint8_t {
    key,     // the key holds it, too
    column,  // the record has a place for it
    kept,    // it stands among what had no place, unless the events were taken without that
    never,   // no format gives it; of Sysmon's events, what is not in its schema
};

struct VocabularyOptions {
    // Windows' own audit events (4688, 4657, 5156 ..) stand for a category as well. Where both they
    // and Sysmon record, one deed would be found twice.
    bool asksAuditLog = false;
};

// The names that rules use, and what they mean in the store's records. It is filled and asked by
// the one thread that makes rules ready, and must be complete ahead of the first RuleEvent;
// RuleEvents only read it, each on a thread of its own.
//
// A category on Windows means what Sysmon records of it, and the records of all that is no channel
// of Windows by their object and action. A service means a channel.
class RuleVocabulary {
public:
    explicit RuleVocabulary(VocabularyOptions options);
    ~RuleVocabulary();

    // None, with the reason in `problem` ("no format gives events of category proxy"), where no
    // record can be meant.
    bool AddSource(const LogSource& source, SourceId* id, std::string* problem);
    FieldId AddField(std::string_view name);

    std::size_t Sources() const noexcept;
    std::size_t Fields() const noexcept;
    std::string_view FieldName(FieldId field) const noexcept;
    FieldStanding StandingOf(SourceId source, FieldId field) const;
    // For people: a column, "actor_path", or a member, "unmapped.OriginalFileName"; empty for
    // `never`. Where that differs from event to event, the place in Sysmon's.
    std::string PlaceOf(SourceId source, FieldId field) const;
    // Sub-queries that together find all events of the source, and others.
    std::vector<Narrowing> NarrowingsOf(SourceId source) const;
    // What surely stands in the text of each event whose field has a value with `part` in it, as an
    // unescaped text; empty where that is not known. It is `part`, or of it what no conversion of
    // the field changes. (Numbers with a fraction or an exponent may be written otherwise.)
    std::string_view CertainPart(SourceId source, FieldId field, std::string_view part) const;

private:
    friend class RuleEvent;
    struct Tables;
    std::unique_ptr<Tables> tables_;
};

// An event as rules see it: under the names of the source's own fields. Used for one event after
// the other, it keeps its memory. For one thread.
class RuleEvent {
public:
    explicit RuleEvent(const RuleVocabulary& vocabulary);
    ~RuleEvent();

    // False when the text is no JSON object; then nothing may be asked. The text must live as long
    // as values are asked for.
    bool Read(std::string_view event);
    bool IsOf(SourceId source);
    // The values, UTF-8; none where the event has no such field or null. Where a conversion has
    // changed the source's text all forms of it are given (of a registry path with a short and a
    // long root). Good until the next Read.
    std::span<const std::string_view> ValuesOf(FieldId field);
    // Calls with every value of the event, those of fields that no rule names too, until it gives
    // true; whether it did.
    bool AnyValue(const std::function<bool(std::string_view)>& test);
    // begin_time as it stands; empty for none. Good until the next call.
    std::string_view Time();

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace zel
