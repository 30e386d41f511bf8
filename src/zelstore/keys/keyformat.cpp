#include "zelstore/keys/keyformat.h"

#include <algorithm>
#include <iterator>

// The text of keys. It is an index that needs no second database: byte order is time order, and
// what a question asks about can be told from the key alone.
//
//   key         = primary | receive | enrichment
//   primary     = "p" field...      begin_time, sequence, object_type, action, then optional fields
//   receive     = "r" field field   receive_time, sequence
//   enrichment  = primary field     silent_sequence
//               | primary field field   silent_sequence, silent_enrichment ("0" or "1")
//   field       = "<" name ">" value
//   name        = one of keyFieldTable
//   value       = text of a fixed form for times, ten digits for numbers, any text for the rest
//
// A field ends where the next one begins or the key does. Nothing is escaped, so a value with '<'
// is read back cut short, and one with '>' not at all. The fields behind action have no fixed
// order: the two makers of primary keys differ, and readers go by names.
//
// An enrichment's key begins with its event's key, so that all of an event's enrichments follow it
// in byte order.

namespace ZEL {

namespace {

static_assert(eventKeyStart.starts_with(primaryPrefix) &&
              eventKeyStart.substr(1) == RowOf(KeyField::beginTime).mark);
static_assert(receiveKeyStart.starts_with(receivePrefix) &&
              receiveKeyStart.substr(1) == RowOf(KeyField::receiveTime).mark);

void AppendField(std::string& key, KeyField field, std::string_view value) {
    key.append(RowOf(field).mark).append(value);
}

constexpr char tagMark = '|';

void AppendTag(std::string& key, KeyField field) {
    key.append(RowOf(field).mark).append({tagMark, RowOf(field).tag});
}

void SetTag(std::string& key, KeyField field, std::string_view value) {
    const char tag[] = {tagMark, RowOf(field).tag};
    const std::size_t at = key.find(std::string_view(tag, sizeof(tag)));
    if (at != key.npos)
        key.replace(at, sizeof(tag), value);
}

// The way that tells what a key is. Nearly no value holds the character that tags begin with, and
// without it each value ends up behind its own name, which MakePrimaryKey does at once.
std::string ComposeByTags(const KeyValues& values) {
    std::string key(1, primaryPrefix);
    for (const KeyField field : requiredKeyFields)
        AppendTag(key, field);
    for (const KeyField field : requiredKeyFields)
        SetTag(key, field, *values[IndexOf(field)]);
    for (const KeyField field : optionalKeyFields) {
        if (const auto& value = values[IndexOf(field)]) {
            AppendTag(key, field);
            SetTag(key, field, *value);
        }
    }
    return key;
}

// Marks and values, in the order of a record's key.
template <typename Take>
void ForEachPart(const KeyValues& values, Take&& take) {
    const auto takeField = [&](KeyField field) {
        if (const auto& value = values[IndexOf(field)]) {
            take(RowOf(field).mark);
            take(*value);
        }
    };
    for (const KeyField field : requiredKeyFields)
        takeField(field);
    for (const KeyField field : optionalKeyFields)
        takeField(field);
}

}  // namespace

HRESULT FamilyPrefix(std::int32_t family, std::string* prefix) {
    if (family != familyPrimary && family != familyReceive)
        return hr::invalidArgument;
    prefix->assign(1, family == familyPrimary ? primaryPrefix : receivePrefix);
    return hr::ok;
}

KeyShape ShapeOf(std::string_view key) noexcept {
    const auto has = [key](KeyField field) { return key.find(RowOf(field).mark) != key.npos; };
    if (key.starts_with(receiveKeyStart))
        return KeyShape::receive;
    if (!key.starts_with(eventKeyStart))
        return KeyShape::none;
    if (!std::all_of(std::begin(requiredKeyFields), std::end(requiredKeyFields), has))
        return KeyShape::cutOff;
    return has(KeyField::silentSequence) ? KeyShape::enrichment : KeyShape::primary;
}

std::string_view BeginTimeOf(std::string_view key) noexcept {
    if (!key.starts_with(eventKeyStart))
        return {};
    key.remove_prefix(eventKeyStart.size());
    return key.substr(0, key.find(RowOf(KeyField::sequence).mark));
}

HRESULT MakeScanStartKey(std::int32_t family, std::string_view time, std::uint32_t sequence,
                         std::string* key) {
    const HRESULT result = FamilyPrefix(family, key);
    if (Failed(result))
        return result;
    const KeyField timeField =
        family == familyPrimary ? KeyField::beginTime : KeyField::receiveTime;
    AppendTag(*key, timeField);
    AppendTag(*key, KeyField::sequence);
    SetTag(*key, timeField, time);
    SetTag(*key, KeyField::sequence, TenDigits(sequence));
    return hr::ok;
}

HRESULT ExtractKeyDate(std::string_view key, std::string* date) {
    constexpr std::size_t dateLength = 10;
    constexpr std::size_t digitCount = 8;
    if (!key.starts_with(eventKeyStart))
        return hr::fail;
    date->assign(key.substr(eventKeyStart.size(), dateLength));
    std::erase(*date, '-');
    return date->size() == digitCount ? hr::ok : hr::fail;
}

void MakePrimaryKey(const KeyValues& values, std::string* key) {
    // Each record's key is put together here: the length is counted first, so that the parts are
    // written without a look at the room for each.
    std::size_t length = 1;
    ForEachPart(values, [&](std::string_view part) { length += part.size(); });
    key->resize(length);
    char* to = key->data();
    *to++ = primaryPrefix;
    ForEachPart(values,
                [&](std::string_view part) { to = std::copy(part.begin(), part.end(), to); });
    if (key->find(tagMark) != key->npos)
        *key = ComposeByTags(values);
}

std::string EnrichmentSuffix(std::uint32_t number) {
    std::string suffix;
    AppendField(suffix, KeyField::silentSequence, TenDigits(number));
    return suffix;
}

std::string FlaggedEnrichmentSuffix(std::uint32_t number, bool silent) {
    std::string suffix = EnrichmentSuffix(number);
    AppendField(suffix, KeyField::silentEnrichment, silent ? "1" : "0");
    return suffix;
}

// No counter begins with a 9: the largest of 32 bits is 4294967295.
std::string TimedEnrichmentSuffix(std::int64_t microseconds, bool silent) {
    constexpr std::size_t timeDigits = 17;  // enough up to the year 5138
    const std::string time = std::to_string(microseconds);
    std::string number = "9";
    number.append(timeDigits - std::min(timeDigits, time.size()), '0').append(time);
    std::string suffix;
    AppendField(suffix, KeyField::silentSequence, number);
    AppendField(suffix, KeyField::silentEnrichment, silent ? "1" : "0");
    return suffix;
}

std::string TenDigits(std::uint32_t number) {
    std::string digits(keyDigits, '0');
    for (auto digit = digits.rbegin(); number != 0; number /= 10)
        *digit++ = static_cast<char>('0' + number % 10);
    return digits;
}

}  // namespace ZEL
