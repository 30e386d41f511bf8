#include "zelstore/schema/timetext.h"

#include <vector>

#include "fuzz.h"

// Times as texts, read and shifted, against a plain reading and a plain calendar. Input: the shift
// in milliseconds, as digits on a line of its own; then the text.

namespace {

using namespace ZEL;
using Numbers = std::vector<int>;

// `form` has a 9 for each digit and T for the mark between date and time.
bool HasForm(const std::string& text, const std::string& form) {
    if (text.size() != form.size())
        return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool fits = form[i] == '9'   ? c >= '0' && c <= '9'
                          : form[i] == 'T' ? c == 'T' || c == '|' || c == ' '
                                           : c == form[i];
        if (!fits)
            return false;
    }
    // First digits that can't be: of the month, the day, the hour, the minute, the second.
    return text[5] <= '1' && text[8] <= '3' && text[11] <= '2' && text[14] <= '5' &&
           text[17] <= '5';
}

HRESULT PlainParse(const std::string& text, Numbers* numbers) {
    if (text.empty())
        return hr::invalidArgument;
    std::size_t characters = 0;
    for (const char c : text)
        characters += static_cast<unsigned char>(c) >> 6 != 2;  // all but the first of a character
    if (characters < 20 || characters > 24)
        return hr::timeTextLength;
    const bool hasMilliseconds = HasForm(text, "9999-99-99T99:99:99.999Z");
    if (!hasMilliseconds && !HasForm(text, "9999-99-99T99:99:99Z"))
        return hr::invalidData;
    for (const std::size_t at : {0, 5, 8, 11, 14, 17})
        numbers->push_back(std::stoi(text.substr(at, at == 0 ? 4 : 2)));
    numbers->push_back(hasMilliseconds ? std::stoi(text.substr(20, 3)) : 0);
    return hr::ok;
}

int DaysOf(int year, int month) {
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    const int days[] = {31, leap ? 29 : 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return days[month - 1];
}

std::string Text(const Numbers& n) {
    char text[64];
    std::snprintf(text, sizeof(text), "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", n[0], n[1], n[2], n[3],
                  n[4], n[5], n[6]);
    return text;
}

// Carries the milliseconds up, unit by unit and day by day.
std::string PlainShift(Numbers n, std::int64_t shift) {
    const std::string none = Text(Numbers(7));
    if (n[0] < 1601 || n[1] < 1 || n[1] > 12 || n[2] < 1 || n[2] > DaysOf(n[0], n[1]) || n[3] > 23)
        return none;
    std::int64_t carry = shift;
    const int units[] = {0, 0, 0, 24, 60, 60, 1000};
    for (std::size_t i = 6; i >= 3; --i) {
        const std::int64_t sum = n[i] + carry;
        carry = sum / units[i] - (sum % units[i] < 0 ? 1 : 0);
        n[i] = static_cast<int>(sum - carry * units[i]);
    }
    for (n[2] += static_cast<int>(carry); n[2] > DaysOf(n[0], n[1]);) {
        n[2] -= DaysOf(n[0], n[1]);
        n[0] += n[1] / 12;
        n[1] = n[1] % 12 + 1;
    }
    while (n[2] < 1) {
        n[0] -= n[1] == 1 ? 1 : 0;
        n[1] = n[1] == 1 ? 12 : n[1] - 1;
        n[2] += DaysOf(n[0], n[1]);
    }
    return n[0] < 1601 ? none : Text(n);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const auto shift = static_cast<std::int32_t>(
        std::strtol(input.Line().substr(0, 12).c_str(), nullptr, 10) & 0xFFFFFFFF);
    const std::string text = input.Rest();
    Numbers numbers;
    const HRESULT expected = PlainParse(text, &numbers);
    wm::SystemTime time;
    fuzz::Check(Schema::ParseTimestamp(text, &time) == expected, {text});
    std::string shifted;
    fuzz::Check(Schema::AdjustTimestamp(text, shift, &shifted) == expected, {text});
    if (Failed(expected))
        return 0;
    const Numbers parsed = {time.year,   time.month,  time.day,         time.hour,
                            time.minute, time.second, time.milliseconds};
    fuzz::Check(parsed == numbers && time.dayOfWeek == 0, {text, Text(parsed)});
    const std::string plain = PlainShift(numbers, shift);
    fuzz::Check(plain == shifted, {text, std::to_string(shift), plain});
    return 0;
}
