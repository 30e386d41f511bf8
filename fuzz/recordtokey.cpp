#include <cpprest/json.h>

#include <vector>

#include "common/countedptr.h"
#include "common/hostservices.h"
#include "common/textbridge.h"
#include "common/valuetext.h"
#include "fuzz.h"
#include "zelstore/keymaker.h"
#include "zelstore/keys/keysplit.h"
#include "zelstore/schema/eventfields.h"
#include "zelstore/schema/fastrecord.h"

// The key of an event record, against one that is put together step by step from the record's
// conditions as the JSON library reads them, and read back field by field; and the fast reader of
// records against that library. Input: the record.

namespace {

using namespace ZEL;
using NamedValues = std::vector<std::pair<std::string, std::string>>;

// What the record says, in the order of a key. The required fields come first.
HRESULT ReadRecord(const std::string& text, NamedValues* values) {
    Schema::Event event;
    Schema::FilterMap fields;
    try {
        event.FromJson(web::json::value::parse(text));
    } catch (const std::exception&) {
        return hr::unexpected;
    }
    const HRESULT result = Schema::ExtractKeyFields(event, false, nullptr, fields);
    if (Failed(result))
        return result;
    if (!event.begin_time)
        return hr::invalidArgument;
    if (!wm::IsUtf8(event.begin_time->value))
        return hr::outOfMemory;
    char digits[16];
    std::snprintf(digits, sizeof(digits), "%010u", event.seq_num);
    *values = {{"begin_time", event.begin_time->value}, {"sequence", digits}};
    for (const char* const name : {"object_type", "action", "actor_hash", "actor_path_name",
                                   "target_hash", "target_path_name", "target_source_ip",
                                   "target_destination_ip", "correlation_uid", "actor_uid"})
        if (const auto found = fields.find(name); found != fields.end() && !found->second.empty())
            values->emplace_back(name, found->second.begin()->first);
    const bool complete = values->size() >= 4 && (*values)[3].first == "action";
    return complete ? hr::ok : hr::fail;
}

// Each value takes the place of the first text that looks like its placeholder.
std::string Compose(const NamedValues& values) {
    static const std::map<std::string, std::string> placeholders = {
        {"begin_time", "|A"},       {"sequence", "|B"},
        {"object_type", "|D"},      {"action", "|E"},
        {"actor_hash", "|F"},       {"actor_path_name", "|G"},
        {"target_hash", "|H"},      {"target_path_name", "|I"},
        {"target_source_ip", "|J"}, {"target_destination_ip", "|K"},
        {"correlation_uid", "|M"},  {"actor_uid", "|N"}};
    std::string key = "p<begin_time>|A<sequence>|B<object_type>|D<action>|E";
    for (std::size_t i = 0; i < values.size(); ++i) {
        const auto& [name, value] = values[i];
        const std::string& placeholder = placeholders.at(name);
        if (i >= 4)
            key += "<" + name + ">" + placeholder;
        key.replace(key.find(placeholder), placeholder.size(), value);
    }
    return key;
}

void CheckReadBack(const std::string& key, const NamedValues& values) {
    for (const auto& [name, value] : values)
        if (value.find_first_of("<>|") != std::string::npos)
            return;  // such a key is not read back as it was
    KeyFields fields;
    SplitKeyFields(key, &fields);
    for (const auto& [name, value] : values) {
        std::string_view found;
        fuzz::Check(GetKeyField(fields, name, &found) == hr::ok && found == value, {key, name});
    }
}

// The fast reader reads what the JSON library reads, or says nothing.
void CheckFastRoad(const std::string& text) {
    static Schema::Event fast;  // nothing of an input may get into the next one
    if (!Schema::ReadRecordFast(text, fast))
        return;
    Schema::Event event;
    event.FromJson(web::json::value::parse(text));
    web::json::value read, expected;
    fast.ToJson(read);
    event.ToJson(expected);
    fuzz::Check(read.serialize() == expected.serialize(), {text});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::Input(data, size).Rest();
    NamedValues values;
    const HRESULT expected = ReadRecord(text, &values);
    static EventKeyMaker maker;  // nothing of an input may get into the next one's key
    std::string key;
    const HRESULT result = maker.Make(text, &key);
    fuzz::Check(result == expected, {text, std::to_string(static_cast<int>(result))});
    const std::string composed = Succeeded(result) ? Compose(values) : "";
    fuzz::Check(key == composed, {text, key, composed});
    CheckFastRoad(text);
    std::wstring wide;
    if (wm::ToWide(text, wide) && wide.find(L'\0') == wide.npos) {
        const auto value = CountedPtr<IStringValue>::Adopt(wm::CreateStringValue(wide.c_str()));
        CountedPtr<IStringValue> keyValue;
        fuzz::Check(maker.Make(*value, keyValue.Receive()) == result, {text});
        fuzz::Check(wm::ToText(keyValue.Get()) == key.substr(0, key.find('\0')), {text, key});
    }
    if (Succeeded(result))
        CheckReadBack(key, values);
    return 0;
}
