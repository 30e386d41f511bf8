#include "zelstore/keys/receivekey.h"

#include <charconv>
#include <cstdlib>

#include "zelstore/keys/keyformat.h"

// A receive-time key is its own bookmark: who was given rows up to one goes on behind its time and
// number. Those who keep bookmarks made the key themselves and read it strictly, so that a damaged
// file is told and not taken for a place. The end of a batch is read from whatever key a row has,
// which a stranger may have written; there a number that goes wrong is better than no batch.

namespace ZEL {

namespace {

constexpr std::string_view timeMark = RowOf(KeyField::receiveTime).mark;
constexpr std::string_view sequenceMark = RowOf(KeyField::sequence).mark;

// The front of a text when it has that length or more, taken off the text.
std::optional<std::string_view> Take(std::string_view* text, std::size_t size) noexcept {
    if (text->size() < size)
        return std::nullopt;
    const std::string_view front = text->substr(0, size);
    text->remove_prefix(size);
    return front;
}

bool TakeText(std::string_view* text, std::string_view expected) noexcept {
    return Take(text, expected.size()) == expected;
}

}  // namespace

std::string MakeReceiveKey(std::string_view time, std::uint32_t sequence) {
    std::string key;
    key.reserve(receiveKeyStart.size() + time.size() + sequenceMark.size() + keyDigits);
    key.append(receiveKeyStart).append(time).append(sequenceMark).append(TenDigits(sequence));
    return key;
}

std::optional<ReceiveKey> ParseReceiveKey(std::string_view key) noexcept {
    if (!TakeText(&key, receiveKeyStart))
        return std::nullopt;
    const auto time = Take(&key, keyTimeLength);
    if (!time || !TakeText(&key, sequenceMark) || key.size() != keyDigits)
        return std::nullopt;
    ReceiveKey place{*time, 0};
    const char* const end = key.data() + key.size();
    const auto parsed = std::from_chars(key.data(), end, place.sequence);
    if (parsed.ec != std::errc() || parsed.ptr != end)
        return std::nullopt;
    return place;
}

std::optional<ReceiveKey> FindReceivePlace(std::string_view key) {
    const std::size_t timeAt = key.find(timeMark);
    const std::size_t sequenceAt = key.find(sequenceMark);
    if (timeAt == key.npos || sequenceAt == key.npos || sequenceAt < timeAt)
        return std::nullopt;
    const std::size_t timeStart = timeAt + timeMark.size();
    const std::string digits(key.substr(sequenceAt + sequenceMark.size()));
    return ReceiveKey{key.substr(timeStart, sequenceAt - timeStart),
                      static_cast<std::uint32_t>(std::atoi(digits.c_str()))};
}

}  // namespace ZEL
