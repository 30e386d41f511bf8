#pragma once

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "fuzz.h"
#include "naive.h"
#include "zelstore/schema/event.h"
#include "zelstore/schema/objectclasses.h"

// Events and sub-queries made of an input's bytes, from few values so that they meet, together with
// what they are to say about the fields of a key.
namespace ZEL::fuzz {

using Schema::DatePair;
using Schema::Field;
using Schema::StringPair;
using FieldConditions = std::map<std::string, Conditions>;

struct Moment {
    int day = 12, ms = 0;  // of November 2026; behind ten o'clock
    int op = -1;           // none
};
// An event or a sub-query, and what it is to say about the fields of a key.
struct Said {
    Schema::Event event;
    std::optional<Moment> begin, receive, end;
    FieldConditions fields;
};

inline const char* const actions[] = {"create", "open", "reputation_query", "terminate"};
inline const char* const texts[] = {
    "C:\\a.exe",  "C:\\A.EXE", "C:\\temp\\b.txt",   "1.2.3.4", "1.2.3.40", "ab", "AB",
    "b0\xC3\xA9", "",          "[1](2){3}^+.$\"/x", "a",       "~"};
inline const char* const wildcards[] = {"*",     "C:\\*",     "?:\\a.exe", "*.EXE", "1.2.?.*",
                                        "*b*t*", "[ab]?.{1}", "(",         "a|*"};

inline std::string TimeText(const Moment& moment, int shift = 0) {
    const int ms = 36000000 + moment.ms + shift;
    char text[64];
    std::snprintf(text, sizeof(text), "2026-11-%02dT%02d:%02d:%02d.%03dZ", moment.day, ms / 3600000,
                  ms / 60000 % 60, ms / 1000 % 60, ms % 1000);
    return text;
}

inline void MakeMoment(Input& input, bool withOp, std::optional<Moment>& moment,
                       Field<DatePair>& field) {
    static const int ms[] = {0, 1, 2, 999};
    static const int ops[] = {-1,
                              -1,
                              Schema::operatorLessThanOrEqual,
                              Schema::operatorGreaterThanOrEqual,
                              Schema::operatorLessThan,
                              Schema::operatorGreaterThan,
                              Schema::operatorEquals};
    const int day = 11 + static_cast<int>(input.Below(3));
    moment = {day, input.Pick(ms), withOp ? input.Pick(ops) : -1};
    field.Make().value = TimeText(*moment);
    if (moment->op >= 0)
        field->op.Make().op = moment->op;
}

inline std::string WildcardsAsPattern(const std::string& value) {
    std::string pattern;
    for (const char c : value) {
        const bool isSpecial = std::string("\\.$^{}[]()|+").find(c) != std::string::npos;
        pattern += c == '*'    ? ".*"
                   : c == '?'  ? ".{1}"
                   : isSpecial ? std::string("\\") + c
                               : std::string(1, c);
    }
    return pattern;
}

inline void MakePair(Input& input, bool forQuery, Field<StringPair>& pair, bool hasWildcards,
                     Conditions& conditions) {
    pair.Make();
    Condition condition{Schema::operatorEquals, false};
    if (const unsigned choice = forQuery ? input.Byte() : 0; choice % 3 != 0) {
        condition = {static_cast<int>(choice / 6 % 12), choice % 2 != 0};
        pair->op.Make() = Schema::Operator(condition.op, condition.caseSensitive);
    }
    for (unsigned count = input.Below(forQuery ? 4 : 3); count > 0; --count) {
        std::string value = input.Below(3) == 0 ? input.Pick(wildcards) : input.Pick(texts);
        pair->values.push_back(value);
        if (hasWildcards && condition.op == Schema::operatorEquals &&
            value.find_first_of("*?") != std::string::npos) {
            condition.op = Schema::operatorFitsPattern;
            value = WildcardsAsPattern(value);
        }
        conditions.emplace(value, condition);
    }
}

using Object = std::unique_ptr<Schema::ZelSchemaParser>;

template <typename T>
Object MakeObject(Input& input, bool forQuery, const std::string& role, FieldConditions& fields) {
    auto object = std::make_unique<T>();
    const auto make = [&](Field<StringPair>& pair, const std::string& field, bool hasWildcards) {
        if ((input.Below(4) == 0) == forQuery)
            MakePair(input, forQuery, pair, hasWildcards, fields[field]);
    };
    if constexpr (requires { object->path; })
        make(object->path, role + "_path_name", true);
    if constexpr (requires { object->sha2; })
        make(object->sha2, role + "_hash", false);
    if constexpr (requires { object->uid; })
        if (role == "actor")
            make(object->uid, "actor_uid", false);
    if constexpr (requires { object->src_ip; }) {
        make(object->src_ip, "target_source_ip", true);
        make(object->dst_ip, "target_destination_ip", true);
    }
    if constexpr (requires { object->text; })
        make(object->text, "target_url_text", true);
    if constexpr (std::is_same_v<T, Schema::KernelObject>) {
        make(object->name, "target_path_name", true);
        const unsigned number = input.Below(4);
        if (number != 0)
            object->type_ids = {number};
        fields["target_type_id"][std::to_string(std::max(number, 1U))] = {Schema::operatorEquals,
                                                                          false};
    }
    return object;
}

using Maker = Object (*)(Input&, bool, const std::string&, FieldConditions&);
inline const Maker targetMakers[] = {MakeObject<Schema::File>,         MakeObject<Schema::Process>,
                                     MakeObject<Schema::Network>,      MakeObject<Schema::RegKey>,
                                     MakeObject<Schema::KernelObject>, MakeObject<Schema::Url>,
                                     MakeObject<Schema::Module>,       MakeObject<Schema::Session>};
inline const Maker actorMakers[] = {MakeObject<Schema::Process>, MakeObject<Schema::File>};

inline Said MakeEvent(Input& input, bool forQuery) {
    Said said;
    Schema::Event& event = said.event;
    const unsigned kind = input.Below(16), which = input.Byte();  // bits of a query hold less often
    event.seq_num = input.Below(3);
    if (!forQuery || kind > 2)
        MakeMoment(input, forQuery, said.begin, event.begin_time);
    if (forQuery && kind > 0 && kind < 4)
        MakeMoment(input, false, said.receive, event.receive_time);
    if (forQuery && which % 4 == 0)
        MakeMoment(input, true, said.end, event.end_time);
    if (!forQuery || which % 16 > 9) {
        event.target = input.Pick(targetMakers)(input, forQuery, "target", said.fields);
        said.fields["object_type"][event.target->GetObjectTypeName()] = {Schema::operatorEquals,
                                                                         true};
    }
    if ((which & 8) != 0 && (!forQuery || (which & 16) != 0))
        event.actor = input.Pick(actorMakers)(input, forQuery, "actor", said.fields);
    if ((which & 32) != 0 && (!forQuery || (which & 64) != 0)) {
        Conditions conditions;
        MakePair(input, forQuery, event.correlation_uid, false, conditions);
        for (const auto& [value, condition] : conditions)
            said.fields["correlation_uid"].emplace(UpperCase(value), condition);
        said.fields["correlation_uid"];
    }
    for (unsigned count = forQuery ? input.Below(5) / 3 * 2 : 1 + input.Below(2); count > 0;
         --count) {
        const std::string action = input.Pick(actions);
        event.action.push_back(Schema::ActionTypes().Number(action));
        said.fields["action"][action] = {Schema::operatorEquals, true};
    }
    if (forQuery && input.Below(8) == 0) {
        event.type_id.Make().values = {8003, 5};
        said.fields["type_id"] = {{"8003", {Schema::operatorEquals, false}},
                                  {"5", {Schema::operatorEquals, false}}};
    }
    return said;
}

inline std::string Written(const Schema::ZelSchemaParser& object) {
    web::json::value json;
    object.ToJson(json);
    return json.serialize();
}

}  // namespace ZEL::fuzz
