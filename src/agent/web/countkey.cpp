#include "agent/web/countkey.h"

#include <charconv>

#include "records/eventtime.h"
#include "zelstore/keys/keyformat.h"
#include "zelstore/keys/keysplit.h"

// Keys are split from their end, which costs the most for what stands at the begin. All keys that
// the store makes begin in one way, so that is read from the front; a key that begins otherwise, or
// names a field once more further behind, is split as a query would.

namespace zel {

namespace {

constexpr std::uint64_t hashStart = 0xCBF29CE484222325, hashFactor = 0x100000001B3;

std::uint64_t HashOf(std::string_view key) {
    std::uint64_t hash = hashStart;
    for (const char c : key)
        hash = (hash ^ static_cast<unsigned char>(c)) * hashFactor;
    return hash;
}

bool Take(std::string_view* text, std::string_view start) {
    if (!text->starts_with(start))
        return false;
    text->remove_prefix(start.size());
    return true;
}

std::uint64_t NumberOf(std::string_view text) {
    std::uint64_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

// The value up to the next mark. False where another of that name may stand behind it.
bool TakeOnly(std::string_view* text, std::string_view mark, std::string_view* value) {
    if (!Take(text, mark))
        return false;
    *value = text->substr(0, text->find('<'));
    text->remove_prefix(value->size());
    return value->find('>') == value->npos && text->find(mark) == text->npos;
}

bool ReadFromFront(std::string_view key, std::string_view* time, EventKeyHead* head) {
    const auto markOf = [](ZEL::KeyField field) { return ZEL::RowOf(field).mark; };
    std::string_view sequence;
    if (!Take(&key, "p") || !TakeOnly(&key, markOf(ZEL::KeyField::beginTime), time) ||
        !TakeOnly(&key, markOf(ZEL::KeyField::sequence), &sequence) ||
        !TakeOnly(&key, markOf(ZEL::KeyField::objectType), &head->object) ||
        !TakeOnly(&key, markOf(ZEL::KeyField::action), &head->action))
        return false;
    head->sequence = NumberOf(sequence);
    return true;
}

}  // namespace

std::string ToText(const EventPlace& place) {
    return std::to_string(place.time) + "." + std::to_string(place.sequence) + "." +
           std::to_string(place.hash);
}

std::optional<EventPlace> ReadEventPlace(std::string_view text) {
    EventPlace place;
    const char* const end = text.data() + text.size();
    const auto first = std::from_chars(text.data(), end, place.time);
    if (first.ec != std::errc() || first.ptr == end || *first.ptr != '.')
        return std::nullopt;
    const auto second = std::from_chars(first.ptr + 1, end, place.sequence);
    if (second.ec != std::errc() || second.ptr == end || *second.ptr != '.')
        return std::nullopt;
    const auto third = std::from_chars(second.ptr + 1, end, place.hash);
    if (third.ec != std::errc() || third.ptr != end)
        return std::nullopt;
    return place;
}

EventKeyHead EventKeyReader::Read(std::string_view key) {
    EventKeyHead head;
    std::string_view time;
    if (!ReadFromFront(key, &time, &head)) {
        ZEL::KeyFields fields;
        ZEL::SplitKeyFields(key, &fields);
        const auto valueOf = [&](ZEL::KeyField field) {
            return fields.Find(ZEL::KeyFieldName(field)).value_or("");
        };
        time = valueOf(ZEL::KeyField::beginTime);
        head.sequence = NumberOf(valueOf(ZEL::KeyField::sequence));
        head.object = valueOf(ZEL::KeyField::objectType);
        head.action = valueOf(ZEL::KeyField::action);
    }
    head.time = TimeOf(time);
    return head;
}

EventPlace EventKeyReader::PlaceOf(const EventKeyHead& head, std::string_view key) {
    return {head.time, head.sequence, HashOf(key)};
}

std::int64_t EventKeyReader::TimeOf(std::string_view text) {
    constexpr std::size_t minuteLength = 17, length = 24;
    const auto digit = [&](std::size_t at) { return static_cast<std::int64_t>(text[at] - '0'); };
    const auto isDigit = [&](std::size_t at) { return text[at] >= '0' && text[at] <= '9'; };
    const bool isUsual = text.size() == length && isDigit(17) && isDigit(18) && text[19] == '.' &&
                         isDigit(20) && isDigit(21) && isDigit(22) && text[23] == 'Z';
    if (!isUsual)
        return MillisecondsIn(text).value_or(0);
    if (text.substr(0, minuteLength) != minute_) {
        const auto time = MillisecondsIn(std::string(text.substr(0, minuteLength)) + "00.000Z");
        if (!time)
            return 0;
        minute_ = text.substr(0, minuteLength);
        minuteTime_ = *time;
    }
    const std::int64_t seconds = digit(17) * 10 + digit(18);
    return minuteTime_ + seconds * 1000 + digit(20) * 100 + digit(21) * 10 + digit(22);
}

}  // namespace zel
