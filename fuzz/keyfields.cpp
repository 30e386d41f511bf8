#include <map>
#include <vector>

#include "common/textbridge.h"
#include "fuzz.h"
#include "zelstore/keys/keyformat.h"
#include "zelstore/keys/keysplit.h"

// Keys of a stranger, read field by field in any order, against a split of the whole key from its
// front. Input: the fields to ask for, a letter each; then the key.

namespace {

using namespace ZEL;

using Map = std::map<std::string_view, std::string_view, std::less<>>;

std::vector<std::string_view> Split(std::string_view text, char mark) {
    std::vector<std::string_view> parts;
    for (std::size_t at = 0; at != std::string_view::npos;) {
        const std::size_t end = text.find(mark);
        parts.push_back(text.substr(0, end));
        at = end;
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return parts;
}

const std::string_view nameList =
    "begin_time sequence receive_time object_type action actor_hash actor_path_name target_hash "
    "target_path_name target_source_ip target_destination_ip silent_sequence correlation_uid "
    "actor_uid silent_enrichment type_id target_type_id target_url_text a b ";

Map PlainFields(std::string_view key) {
    Map fields;
    for (const std::string_view piece : Split(key, '<')) {
        const auto parts = Split(piece, '>');
        if (parts.size() == 2)
            fields[parts[0]] = parts[1];
    }
    return fields;
}

HRESULT PlainField(const Map& fields, std::string_view name, std::string_view* value) {
    static const Map typeNumbers = {
        {"session", "8000"},       {"process", "8001"}, {"module", "8002"},    {"file", "8003"},
        {"directory", "8004"},     {"reg_key", "8005"}, {"reg_value", "8006"}, {"network", "8007"},
        {"kernel_object", "8009"}, {"etw", "8015"},     {"amsi", "8018"},      {"url", "42"}};
    const auto found = fields.find(name);
    if (name != "type_id" && found != fields.end()) {
        *value = found->second;
        std::wstring wide;
        return wm::ToWide(*value, wide) ? hr::ok : hr::fail;
    }
    const auto type = fields.find("object_type");
    if ((name != "type_id" && name != "target_type_id") || type == fields.end())
        return hr::fail;
    if (name == "target_type_id") {
        *value = type->second == "kernel_object" ? "1" : "";
        return hr::ok;
    }
    const auto action = fields.find("action");
    const bool asked = action != fields.end() && action->second == "reputation_query";
    const auto number = typeNumbers.find(type->second);
    *value = number == typeNumbers.end() ? "" : number->second;
    if (type->second == "file" && asked)
        *value = "5";
    return hr::ok;
}

void CheckDate(const std::string& key) {
    const std::string start = "p<begin_time>";
    std::string plain;
    if (key.starts_with(start)) {
        for (const char c : key.substr(start.size(), 10))
            plain += c == '-' ? "" : std::string(1, c);
    }
    std::string date;
    const HRESULT result = ExtractKeyDate(key, &date);
    fuzz::Check(result == (plain.size() == 8 ? hr::ok : hr::fail), {key, plain});
    fuzz::Check(Failed(result) || date == plain, {key, plain, date});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::string order = input.Line();
    const std::string rest = input.Rest();
    // Of its exact size, so that a look behind its ends is seen.
    const std::vector<char> bytes(rest.begin(), rest.end());
    const std::string_view key(bytes.data(), bytes.size());
    const Map plain = PlainFields(key);
    KeyFields fields;
    SplitKeyFields(key, &fields);
    static const auto names = Split(nameList, ' ');
    for (const char letter : order + "ABCDEFGHIJKLMNOPQRSTU") {
        const std::string_view name =
            names[(static_cast<unsigned char>(letter) - unsigned{'A'}) % names.size()];
        std::string_view expected, value;
        const HRESULT result = PlainField(plain, name, &expected);
        fuzz::Check(GetKeyField(fields, name, &value) == result, {key, name, expected, value});
        fuzz::Check(Failed(result) || value == expected, {key, name, expected, value});
    }
    CheckDate(std::string(key));
    return 0;
}
