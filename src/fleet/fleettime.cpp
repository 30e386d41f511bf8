#include "fleet/fleettime.h"

#include <chrono>

#include "zelstore/schema/timetext.h"

namespace zel::fleet {

bool HasUsualForm(std::string_view time) {
    constexpr std::string_view form = "0000-00-00T00:00:00.000Z";
    for (std::size_t i = 0; i < form.size() && time.size() == form.size(); ++i) {
        const bool isDigit = time[i] >= '0' && time[i] <= '9';
        if (form[i] == '0' ? !isDigit : time[i] != form[i])
            return false;
    }
    return time.size() == form.size();
}

std::optional<std::uint64_t> MillisecondsOf(std::string_view time) {
    using namespace std::chrono;
    wm::SystemTime parts;
    if (!HasUsualForm(time) ||
        Failed(ZEL::Schema::ParseTimestamp(ZEL::Schema::Text(time.begin(), time.end()), &parts)))
        return std::nullopt;
    const year_month_day date(year(parts.year), month(parts.month), day(parts.day));
    if (!date.ok() || parts.hour > 23 || parts.minute > 59 || parts.second > 59)
        return std::nullopt;
    const auto point = sys_time<milliseconds>(sys_days(date)) + hours(parts.hour) +
                       minutes(parts.minute) + seconds(parts.second) +
                       milliseconds(parts.milliseconds);
    const auto count = point.time_since_epoch().count();
    return count < 0 ? 0 : static_cast<std::uint64_t>(count);
}

}  // namespace zel::fleet
