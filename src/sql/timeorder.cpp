#include "sql/timeorder.h"

#include "records/timearg.h"

// Nearly all comparisons are of times in the stored form, which are ordered as their texts are.

namespace zel {

namespace {

// Longer texts are no times, and are not copied to be looked at.
constexpr std::size_t longestTime = 64;

}  // namespace

bool IsStoredTime(std::string_view text) noexcept {
    constexpr std::string_view form = "0000-00-00T00:00:00.000Z";
    if (text.size() != form.size())
        return false;
    for (std::size_t i = 0; i < form.size(); ++i) {
        const bool isDigit = text[i] >= '0' && text[i] <= '9';
        if (form[i] == '0' ? !isDigit : text[i] != form[i])
            return false;
    }
    return true;
}

void TimeOrder::BeginStatement() noexcept {
    now_ = std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
}

std::string TimeOrder::Resolve(std::string_view text) const {
    if (!IsStoredTime(text) && text.size() <= longestTime) {
        TimeArgument time = ParseTimeArgument(std::string(text), now_.load());
        if (time.ok)
            return std::move(time.text);
    }
    return std::string(text);
}

int TimeOrder::Compare(std::string_view left, std::string_view right) const {
    if (IsStoredTime(left) && IsStoredTime(right))
        return left.compare(right);
    return Resolve(left).compare(Resolve(right));
}

}  // namespace zel
