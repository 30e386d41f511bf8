#include "zel/query/valuecheck.h"

#include <algorithm>
#include <boost/regex.hpp>
#include <limits>
#include <set>

#include "common/asciicase.h"
#include "records/timearg.h"
#include "zel/terminal/textfit.h"
#include "zelstore/query/machinepaths.h"
#include "zelstore/schema/eventfields.h"
#include "zelstore/schema/vocabulary.h"

// The leaves of a document. What a value may be follows from its shape (documentkeys.h), and
// whether it is a condition: only then does it have to say something that events can fit. Times are
// held to the store's one form, because the store compares them as text and would take 2026-1-2 for
// a time behind 2026-12-31. Patterns are compiled as the store will compile them.

namespace zel {

namespace {

using web::json::value;
using Strings = std::vector<std::string_view>;

const char* TypeName(const value& v) {
    switch (v.type()) {
        case value::Number:
            return "a number";
        case value::Boolean:
            return "true or false";
        case value::String:
            return "a string";
        case value::Object:
            return "an object";
        case value::Array:
            return "an array";
        default:
            return "null";
    }
}

std::string At(const std::string& path, std::size_t index) {
    return path + "[" + std::to_string(index) + "]";
}

// From the tables that the store reads and writes by. Some begin with a name for none at all, which
// a document does not say.
Strings NamesOf(const ZEL::Schema::NameTable& table, std::int32_t first) {
    Strings names;
    for (std::size_t i = 0; i < table.Size(); ++i)
        names.emplace_back(table.Name(first + static_cast<std::int32_t>(i)));
    return names;
}

Strings OperatorNames() {
    return NamesOf(ZEL::Schema::OperatorTypes(), 0);
}

bool Contains(const Strings& names, std::string_view name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

// What the pattern of a path stands for on the machine; nothing for what is no path or can't be
// expanded: the store then takes it as it stands.
std::set<std::string> Variants(const std::string& pattern, const DocumentKey& key) {
    std::set<std::string> variants;
    ZEL::Schema::IPathExpander& machine = ZEL::MachinePaths();
    if (key.reading == DocumentKey::path)
        ZEL::IgnoreResult(machine.ExpandPath(pattern, true, variants), "as it stands");
    if (key.reading == DocumentKey::registryPath)
        ZEL::IgnoreResult(machine.ExpandRegistryPath(pattern, true, variants), "the query tells");
    return variants;
}

constexpr DocumentKey pairKeys[] = {{"operator", Shape::anything}, {"value", Shape::anything}};
constexpr DocumentKey operatorKeys[] = {{"value", Shape::text},
                                        {"case_insensitive", Shape::boolean}};
constexpr DocumentKey existKeys[] = {{"state", Shape::text}, {"error_code", Shape::text}};
constexpr DocumentKey sourceKeys[] = {{"facility", Shape::stringPair}};

}  // namespace

std::vector<std::string_view> ActionNames() {
    return NamesOf(ZEL::Schema::ActionTypes(), 0);
}

std::vector<std::string_view> ObjectTypeNames() {
    Strings names;
    for (const ArtifactKind& kind : ArtifactKinds())
        names.push_back(kind.objectType);
    return names;
}

// With the library and the flags of the row filter, as no description of its syntax would be as
// exact.
std::optional<PatternProblem> TryPattern(const std::string& pattern, bool caseSensitive) {
    const auto flags = caseSensitive
                           ? boost::regex_constants::normal
                           : boost::regex_constants::normal | boost::regex_constants::icase;
    try {
        const boost::regex compiled(pattern, flags);
        return std::nullopt;
    } catch (const boost::regex_error& error) {
        const std::string what = error.what();
        const auto at = static_cast<std::size_t>(std::max<std::ptrdiff_t>(error.position(), 0));
        return PatternProblem{what.substr(0, what.find("  The error occurred")),
                              std::min(at, pattern.size())};
    } catch (const std::exception& error) {
        return PatternProblem{error.what(), 0};
    }
}

void ValueCheck::Error(const std::string& path, const std::string& what) {
    found_.errors.push_back((path.empty() ? "the document" : Escaped(path)) + ": " + what);
}

void ValueCheck::Warn(const std::string& path, const std::string& what) {
    found_.warnings.push_back(Escaped(path) + " " + what);
}

const DocumentKey* ValueCheck::Known(const std::string& name, DocumentKeys keys,
                                     const std::string& at) {
    Strings known;
    for (const DocumentKey& key : keys) {
        if (key.name == name)
            return &key;
        known.push_back(key.name);
    }
    Error(at, UnknownName("key", name, known));
    return nullptr;
}

bool ValueCheck::Expect(bool isRight, const char* wanted, const value& v, const std::string& path) {
    if (!isRight)
        Error(path, std::string(wanted) + " is expected, not " + TypeName(v));
    return isRight;
}

bool ValueCheck::IsObject(const value& v, const std::string& path) {
    return Expect(v.is_object(), "an object", v, path);
}

bool ValueCheck::IsArray(const value& v, const std::string& path) {
    return Expect(v.is_array(), "an array", v, path);
}

bool ValueCheck::IsString(const value& v, const std::string& path) {
    return Expect(v.is_string(), "a string", v, path);
}

void ValueCheck::Number(const value& v, bool isSigned, const std::string& path) {
    if (!Expect(v.is_number(), "a number", v, path))
        return;
    using Limits = std::numeric_limits<std::int32_t>;
    const web::json::number& number = v.as_number();
    const bool fits = isSigned ? number.is_int64() && number.to_int64() >= Limits::min() &&
                                     number.to_int64() <= Limits::max()
                               : number.is_uint32();
    if (!number.is_integral() || !fits)
        Error(path, isSigned ? "a whole number of 32 bits is expected"
                             : "a whole number from 0 to 4294967295 is expected");
}

void ValueCheck::Value(const value& v, const DocumentKey& key, const std::string& path,
                       bool counts) {
    switch (key.shape) {
        case Shape::text:
            static_cast<void>(IsString(v, path));
            return;
        case Shape::boolean:
            static_cast<void>(Expect(v.is_boolean(), "true or false", v, path));
            return;
        case Shape::integer:
        case Shape::number:
            Number(v, key.shape == Shape::integer, path);
            return;
        case Shape::numbers:
            if (IsArray(v, path))
                for (std::size_t i = 0; i < v.size(); ++i)
                    Number(v.at(i), false, At(path, i));
            return;
        case Shape::actions:
            Names(v, "action", ActionNames(), path);
            return;
        case Shape::sessionStates:
            Names(v, "session state", NamesOf(ZEL::Schema::SessionStates(), 1), path);
            return;
        case Shape::stringPair:
            StringPair(v, key, path, counts);
            return;
        case Shape::numberPair:
            NumberPair(v, path, counts);
            return;
        case Shape::datePair:
        case Shape::guidPair:
            DatePair(v, key.shape == Shape::datePair ? key.name : "", path);
            return;
        case Shape::existPair:
            ExistPair(v, path);
            return;
        case Shape::source:
            Members(v, sourceKeys, path,
                    [&](const DocumentKey& inner, const value& member, const std::string& at) {
                        Value(member, inner, at, false);
                    });
            return;
        default:
            return;
    }
}

void ValueCheck::Names(const value& list, const char* what, const Strings& known,
                       const std::string& path) {
    if (!IsArray(list, path))
        return;
    for (std::size_t i = 0; i < list.size(); ++i) {
        const value& name = list.at(i);
        if (IsString(name, At(path, i)) && !Contains(known, name.as_string()))
            Error(At(path, i), UnknownName(what, name.as_string(), known));
    }
}

// An operator without a name is an error and not the default: who writes one means something by it.
ValueCheck::Comparison ValueCheck::Operator(const value& op, const std::string& path) {
    Comparison comparison;
    const std::size_t errors = found_.errors.size();
    bool hasName = false;
    Members(op, operatorKeys, path,
            [&](const DocumentKey& key, const value& member, const std::string& at) {
                Value(member, key, at, false);
                if (key.shape == Shape::boolean) {
                    comparison.caseSensitive = member.is_boolean() && !member.as_bool();
                } else if (member.is_string()) {
                    hasName = true;
                    comparison.name = member.as_string();
                    const Strings known = OperatorNames();
                    if (!Contains(known, comparison.name) || comparison.name == "unknown")
                        Error(at, UnknownName("operator", comparison.name,
                                              {known.begin() + 1, known.end()}));
                }
            });
    if (!hasName && found_.errors.size() == errors)
        Error(path, "the operator's value is missing, such as {\"value\":\"contains\"}");
    return comparison;
}

// That a value is missing counts only where it is a condition; elsewhere the store does not look.
const value* ValueCheck::Pair(const value& pair, const std::string& path, bool isArray, bool counts,
                              Comparison* comparison) {
    const value* found = nullptr;
    bool isPresent = false;
    Members(pair, pairKeys, path,
            [&](const DocumentKey& key, const value& member, const std::string& at) {
                if (key.name == "operator") {
                    *comparison = Operator(member, at);
                    return;
                }
                isPresent = true;
                if (isArray ? IsArray(member, at) : IsString(member, at))
                    found = &member;
            });
    const bool isEmpty = !isPresent || (found != nullptr && isArray && found->size() == 0);
    if (counts && pair.is_object() && isEmpty)
        Error(path, "there is no value, so that nothing would match");
    return found;
}

void ValueCheck::StringPair(const value& pair, const DocumentKey& key, const std::string& path,
                            bool counts) {
    Comparison comparison;
    const value* const list = Pair(pair, path, true, counts, &comparison);
    if (list == nullptr)
        return;
    std::vector<std::string> values;
    for (std::size_t i = 0; i < list->size(); ++i) {
        if (!IsString(list->at(i), At(path + ".value", i)))
            return;
        values.push_back(list->at(i).as_string());
    }
    if (counts)
        Patterns(values, key, comparison, path + ".value");
}

// False, told as an error, for what is no pattern. A path's pattern is tested in the forms that it
// has on the machine, in which no < or > is left.
bool ValueCheck::Pattern(const std::string& pattern, const DocumentKey& key, bool caseSensitive,
                         const std::string& path) {
    if (const auto problem = TryPattern(pattern, caseSensitive)) {
        Error(path, problem->what + "\n" + PointAt(pattern, problem->at));
        return false;
    }
    const bool isPath = key.reading == DocumentKey::path;
    const std::size_t bracket = isPath ? pattern.find_first_of("<>") : pattern.npos;
    for (const std::string& variant : Variants(pattern, key)) {
        const auto problem = TryPattern(variant, caseSensitive);
        if (!problem)
            continue;
        Error(path, bracket != pattern.npos
                        ? "< and > stand for % in the pattern of a path, so that (?<name>..), "
                          "(?<=..), (?<!..) and (?>..) can't be used\n" +
                              PointAt(pattern, bracket)
                        : "on this machine it stands for what is no pattern: " + problem->what +
                              "\n" + PointAt(variant, problem->at));
        return false;
    }
    if (bracket != pattern.npos)
        Warn(path, "holds < or >, which stand for % in the pattern of a path");
    return true;
}

// A value with wildcards makes patterns of all values behind it, which then stand as they are.
void ValueCheck::Patterns(const std::vector<std::string>& values, const DocumentKey& key,
                          const Comparison& comparison, const std::string& path) {
    const bool isPattern = comparison.name == "fits_pattern";
    const bool converts = key.reading != DocumentKey::plain && comparison.name == "equals";
    bool behindWildcard = false;
    for (std::size_t i = 0; i < values.size(); ++i) {
        std::string pattern = values[i];
        // Correlation identifiers are kept in upper case, and so are the patterns for them.
        if (key.name == "correlation_uid")
            std::transform(pattern.begin(), pattern.end(), pattern.begin(),
                           ZEL::ToUpperAscii<char>);
        if ((isPattern || behindWildcard) &&
            Pattern(pattern, key, comparison.caseSensitive, At(path, i)) && behindWildcard &&
            pattern.find_first_of("\\.*?+[](){}|^$") != pattern.npos)
            Warn(At(path, i),
                 "stands behind a value with wildcards and is read as a regular expression");
        behindWildcard = behindWildcard || (converts && ZEL::Schema::HasWildcard(values[i]));
    }
}

void ValueCheck::NumberPair(const value& pair, const std::string& path, bool counts) {
    Comparison comparison;
    const value* const list = Pair(pair, path, true, counts, &comparison);
    for (std::size_t i = 0; list != nullptr && i < list->size(); ++i)
        Number(list->at(i), false, At(path + ".value", i));
}

// `name` is empty for what only looks like a date.
void ValueCheck::DatePair(const value& pair, std::string_view name, const std::string& path) {
    Comparison comparison;
    comparison.name.clear();
    const value* const text = Pair(pair, path, false, !name.empty(), &comparison);
    if (name.empty() || text == nullptr)
        return;
    const Strings ends = {"", "less_than", "less_than_or_equal"};
    Strings allowed = ends;
    if (name == "begin_time")
        allowed.insert(allowed.end(), {"greater_than", "greater_than_or_equal"});
    if (name != "receive_time" && Contains(OperatorNames(), comparison.name) &&
        !Contains(allowed, comparison.name))
        Error(path + ".operator.value", "\"" + comparison.name + "\" makes no time range here");
    const std::string& given = text->as_string();
    const TimeArgument time = ParseTimeArgument(given, {});
    const bool isDate = !given.empty() && given[0] >= '0' && given[0] <= '9';
    if (!time.ok || !isDate)
        Error(path + ".value", "a time such as 2026-11-12T10:00:00.000Z is expected\n" +
                                   PointAt(given, isDate ? time.column : 0));
    else if (time.text != given)
        Error(path + ".value", "times are compared as text; write " + time.text);
    else if ((comparison.name == "less_than" && given == "1601-01-01T00:00:00.000Z") ||
             (comparison.name == "greater_than" && given == "9999-12-31T23:59:59.999Z"))
        Error(path + ".value", "times go from the year 1601 to 9999");
}

// Both members are texts, of which only the state is a name.
void ValueCheck::ExistPair(const value& pair, const std::string& path) {
    Members(
        pair, existKeys, path,
        [&](const DocumentKey& key, const value& member, const std::string& at) {
            const Strings known = NamesOf(ZEL::Schema::ExistStates(), 1);
            if (IsString(member, at) && key.name == "state" && !Contains(known, member.as_string()))
                Error(at, UnknownName("state", member.as_string(), known));
        });
}

}  // namespace zel
