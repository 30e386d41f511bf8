#include "records/recordtime.h"

#include <cstddef>
#include <cstdlib>
#include <string>

namespace zel {

namespace {

constexpr std::string_view form = "dddd-dd-ddTdd:dd:dd.dddZ";

int Number(std::string_view time, std::size_t at, std::size_t digits) {
    return std::atoi(std::string(time.substr(at, digits)).c_str());
}

int DaysOfMonth(int year, int month) {
    constexpr int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool isLeapYear = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return days[month - 1] + (month == 2 && isLeapYear ? 1 : 0);
}

}  // namespace

bool IsRecordTime(std::string_view time) {
    if (time.size() != form.size())
        return false;
    for (std::size_t i = 0; i < form.size(); ++i) {
        const bool isDigit = time[i] >= '0' && time[i] <= '9';
        if (form[i] == 'd' ? !isDigit : time[i] != form[i])
            return false;
    }
    return true;
}

bool RecordTimeExists(std::string_view time) {
    const int year = Number(time, 0, 4), month = Number(time, 5, 2), day = Number(time, 8, 2);
    return year >= 1601 && month >= 1 && month <= 12 && day >= 1 &&
           day <= DaysOfMonth(year, month) && Number(time, 11, 2) < 24 &&
           Number(time, 14, 2) < 60 && Number(time, 17, 2) < 60;
}

}  // namespace zel
