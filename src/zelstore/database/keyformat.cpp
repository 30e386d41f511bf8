#include "zelstore/database/keyformat.h"

#include <algorithm>
#include <iterator>

// A key is a letter and then fields, each written as <name>value with nothing behind it:
//
//   primary     p<begin_time>B<sequence>S<object_type>O<action>A  and optional fields
//   receive     r<receive_time>T<sequence>N
//   enrichment  a primary key, then <silent_sequence>N, then <silent_enrichment>F for flagged ones
//
// Times have a fixed form and numbers ten digits, so that byte order is time order and number
// order. Nothing is escaped: a value with '<' or '>' is read back cut short or not at all.

namespace ZEL {

namespace {

struct TypeNumber {
    std::string_view objectType;
    const char* number;
};

constexpr TypeNumber typeNumbers[] = {
    {"session", "8000"},       {"process", "8001"}, {"module", "8002"},    {"file", "8003"},
    {"directory", "8004"},     {"reg_key", "8005"}, {"reg_value", "8006"}, {"network", "8007"},
    {"kernel_object", "8009"}, {"etw", "8015"},     {"amsi", "8018"},      {"url", "42"},
};

const std::string* Find(const KeyFields& fields, std::string_view name) {
    const auto found = fields.find(name);
    return found != fields.end() ? &found->second : nullptr;
}

// The type number that goes with the kind of target; files that were only asked about have their
// own.
HRESULT GetTypeId(const KeyFields& fields, std::string* value) {
    const std::string* const objectType = Find(fields, "object_type");
    if (objectType == nullptr)
        return hr::fail;
    const std::string* const action = Find(fields, "action");
    if (*objectType == "file" && action != nullptr && *action == "reputation_query") {
        *value = "5";
        return hr::ok;
    }
    const auto row = std::find_if(std::begin(typeNumbers), std::end(typeNumbers),
                                  [&](const TypeNumber& r) { return r.objectType == *objectType; });
    if (row != std::end(typeNumbers))
        *value = row->number;
    return hr::ok;
}

HRESULT GetMissingTargetTypeId(const KeyFields& fields, std::string* value) {
    const std::string* const objectType = Find(fields, "object_type");
    if (objectType == nullptr)
        return hr::fail;
    if (*objectType == "kernel_object")
        *value = "1";
    return hr::ok;
}

}  // namespace

HRESULT FamilyPrefix(std::int32_t family, std::string* prefix) {
    if (family != familyPrimary && family != familyReceive)
        return hr::invalidArgument;
    *prefix = family == familyPrimary ? "p" : "r";
    return hr::ok;
}

HRESULT MakeScanStartKey(std::int32_t family, std::string_view time, std::uint32_t sequence,
                         std::string* key) {
    const HRESULT result = FamilyPrefix(family, key);
    if (Failed(result))
        return result;
    key->append(family == familyPrimary ? "<begin_time>" : "<receive_time>");
    key->append(time).append("<sequence>").append(TenDigits(sequence));
    return hr::ok;
}

HRESULT ExtractKeyDate(std::string_view key, std::string* date) {
    constexpr std::string_view start = "p<begin_time>";
    constexpr std::size_t dateLength = 10;
    constexpr std::size_t digitCount = 8;
    if (!key.starts_with(start))
        return hr::fail;
    date->assign(key.substr(start.size(), dateLength));
    std::erase(*date, '-');
    return date->size() == digitCount ? hr::ok : hr::fail;
}

void SplitKeyFields(std::string_view key, KeyFields* fields) {
    while (true) {
        const std::size_t end = key.find('<');
        const std::string_view piece = key.substr(0, end);
        const std::size_t mark = piece.find('>');
        if (mark != std::string_view::npos && piece.find('>', mark + 1) == std::string_view::npos)
            (*fields)[std::string(piece.substr(0, mark))] = piece.substr(mark + 1);
        if (end == std::string_view::npos)
            return;
        key.remove_prefix(end + 1);
    }
}

HRESULT GetKeyField(const KeyFields& fields, std::string_view name, std::string* value) {
    if (name == "type_id")
        return GetTypeId(fields, value);
    if (const std::string* const found = Find(fields, name)) {
        *value = *found;
        return hr::ok;
    }
    return name == "target_type_id" ? GetMissingTargetTypeId(fields, value) : hr::fail;
}

void KeyTemplate::Set(char tag, std::string_view value) {
    const char placeholder[] = {'|', tag};
    const std::size_t at = key_.find(std::string_view(placeholder, sizeof(placeholder)));
    if (at != std::string::npos)
        key_.replace(at, sizeof(placeholder), value);
}

std::string TenDigits(std::uint32_t number) {
    std::string digits = std::to_string(number);
    digits.insert(0, 10 - digits.size(), '0');
    return digits;
}

}  // namespace ZEL
