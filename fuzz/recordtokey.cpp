#include <cpprest/json.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <set>
#include <tuple>
#include <vector>

#include "common/textbridge.h"
#include "fuzz.h"
#include "zelstore/database/keyformat.h"
#include "zelstore/keymaker.h"
#include "zelstore/schema/event.h"

// The key of an event record, against one that a walk over the record's JSON makes. Input: the
// record.

namespace {

using namespace ZEL;
using Json = web::json::value;
using Texts = std::vector<std::string>;

struct NotUnicode {};

std::string Utf8(const utility::string_t& text) {
    std::string buffer;
    const auto utf8 = Schema::ToUtf8(text, buffer);
    if (!utf8)
        throw NotUnicode();
    return std::string(*utf8);
}

utility::string_t Key(const char* name) {
    return utility::conversions::to_string_t(name);
}

// Members that are asked for behind a successful parse have the type that they need.
const Json* Find(const Json* object, const char* name) {
    return object != nullptr && object->has_field(Key(name)) ? &object->at(Key(name)) : nullptr;
}

std::string Escaped(const std::string& value) {
    std::string pattern;
    for (const char c : value)
        pattern += c == '*' ? ".*"
                   : c == '?'
                       ? ".{1}"
                       : (std::strchr("\\.$^{}[]()|+", c) && c ? "\\" : "") + std::string(1, c);
    return pattern;
}

// The values of a member that is a pair. Under `equals` the first one with a wildcard becomes a
// pattern; those behind it stay as they are.
Texts Values(const Json* object, const char* name, bool hasWildcards = false) {
    const Json* const pair = Find(object, name);
    const Json* const op = Find(pair, "operator");
    const Json* const opName = Find(op, "value");
    bool equals = op == nullptr || (opName != nullptr && Utf8(opName->as_string()) == "equals");
    Texts values;
    if (const Json* const array = Find(pair, "value")) {
        for (const Json& element : array->as_array()) {
            values.push_back(Utf8(element.as_string()));
            if (!hasWildcards || !equals || values.back().find_first_of("*?") == std::string::npos)
                continue;
            values.back() = Escaped(values.back());
            equals = false;
        }
    }
    return values;
}

std::string UpperCase(std::string text) {
    for (char& c : text)
        c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    return text;
}

std::string ObjectType(const Json* object) {
    const Json* const type = Find(object, "object_type");
    return type != nullptr ? Utf8(type->as_string()) : "unknown";
}

Texts Paths(const Json* object) {
    static const std::set<std::string> withPath = {"file",    "directory", "process",  "module",
                                                   "service", "reg_key",   "reg_value"};
    const std::string type = ObjectType(object);
    return withPath.contains(type)   ? Values(object, "path", true)
           : type == "kernel_object" ? Values(object, "name", true)
                                     : Texts();
}

Texts Hashes(const Json* object) {
    static const std::set<std::string> withHash = {"file", "process", "module", "service"};
    return withHash.contains(ObjectType(object)) ? Values(object, "sha2") : Texts();
}

std::uint32_t Number(const Json* number) {
    if (number == nullptr)
        return 0;
    if (number->is_integer())
        return static_cast<std::uint32_t>(number->as_number().is_int64()
                                              ? number->as_number().to_int64()
                                              : number->as_number().to_uint64());
    const double limit = 9223372036854775808.0, real = number->as_double();
    return real >= limit    ? 0xFFFFFFFFU
           : real <= -limit ? 0
                            : static_cast<std::uint32_t>(static_cast<std::int64_t>(real));
}

struct PlainKey {
    std::string text;
    std::map<std::string, std::string> fields;
    bool plain = true;  // no value has characters that a key gives a meaning
};

void Append(PlainKey& key, const char* name, const char* tag, std::string value) {
    key.text += "<" + std::string(name) + ">" + tag;
    key.text.replace(key.text.find(tag), 2, value);
    key.plain = key.plain && value.find_first_of("<>|") == std::string::npos;
    key.fields[name] = std::move(value);
}

HRESULT MakePlainKey(const Json& record, PlainKey* key) {
    const Json* const artifacts = Find(&record, "artifacts");
    const Json* const actor = Find(artifacts, "actor");
    const Json* const target = Find(artifacts, "target");
    const std::string targetType = target != nullptr ? ObjectType(target) : "";
    const bool isNetwork = targetType == "network";
    Texts actions, correlations;
    if (const Json* const names = Find(&record, "action"))
        for (const Json& name : names->as_array())
            actions.push_back(Utf8(name.as_string()));
    for (const std::string& value : Values(&record, "correlation_uid"))
        correlations.push_back(UpperCase(value));
    const std::tuple<const char*, const char*, Texts> optional[] = {
        {"actor_hash", "|F", Hashes(actor)},
        {"actor_path_name", "|G", Paths(actor)},
        {"target_hash", "|H", Hashes(target)},
        {"target_path_name", "|I", Paths(target)},
        {"target_source_ip", "|J", isNetwork ? Values(target, "src_ip", true) : Texts()},
        {"target_destination_ip", "|K", isNetwork ? Values(target, "dst_ip", true) : Texts()},
        {"correlation_uid", "|M", correlations},
        {"actor_uid", "|N", ObjectType(actor) == "process" ? Values(actor, "uid") : Texts()},
    };
    if (targetType == "url")
        Values(target, "text");
    const Json* const begin = Find(&record, "begin_time");
    if (begin == nullptr)
        return hr::invalidArgument;
    std::string time;
    try {
        const Json* const value = Find(begin, "value");
        time = value != nullptr ? Utf8(value->as_string()) : "";
    } catch (const NotUnicode&) {
        return hr::outOfMemory;
    }
    if (targetType.empty() || actions.empty())
        return hr::fail;
    std::string digits = std::to_string(Number(Find(&record, "seq_num")));
    digits.insert(0, 10 - digits.size(), '0');
    // All required placeholders stand in the text before the first is replaced.
    key->text = "p<begin_time>|A<sequence>|B<object_type>|D<action>|E";
    const std::tuple<const char*, const char*, std::string> required[] = {
        {"begin_time", "|A", time},
        {"sequence", "|B", digits},
        {"object_type", "|D", targetType},
        {"action", "|E", *std::min_element(actions.begin(), actions.end())}};
    for (const auto& [name, tag, value] : required) {
        const std::size_t at = key->text.find(tag);
        key->text.replace(at, 2, value);
        key->plain = key->plain && value.find_first_of("<>|") == std::string::npos;
        key->fields[name] = value;
    }
    for (const auto& [name, tag, values] : optional)
        if (!values.empty())
            Append(*key, name, tag, *std::min_element(values.begin(), values.end()));
    return hr::ok;
}

HRESULT PlainResult(const std::string& text, PlainKey* key) {
    Json record;
    try {
        record = Json::parse(utility::conversions::to_string_t(text));
        Schema::Event().FromJson(record);
    } catch (const std::exception&) {
        return hr::unexpected;
    }
    try {
        return MakePlainKey(record, key);
    } catch (const NotUnicode&) {
        return hr::unexpected;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::Input(data, size).Rest();
    PlainKey plain;
    const HRESULT expected = PlainResult(text, &plain);
    std::string key;
    const HRESULT result = MakeEventKeyUtf8(text, &key);
    fuzz::Check(result == expected, {text, std::to_string(static_cast<int>(result))});
    fuzz::Check(Failed(result) || key == plain.text, {text, key, plain.text});
    std::wstring wide, wideKey, expectedWide;
    if (wm::ToWide(text, wide)) {
        fuzz::Check(MakeEventKey(wide, &wideKey) == result, {text});
        fuzz::Check(Failed(result) || (wm::ToWide(key, expectedWide) && expectedWide == wideKey),
                    {text, key});
    }
    if (Failed(result) || !plain.plain)
        return 0;
    KeyFields fields;
    SplitKeyFields(key, &fields);
    for (const auto& [name, value] : plain.fields) {
        std::string_view found;
        fuzz::Check(GetKeyField(fields, name, &found) == hr::ok && found == value, {key, name});
    }
    return 0;
}
