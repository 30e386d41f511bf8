#include "zel/ingest/recordcheck.h"

#include <cstdlib>
#include <functional>
#include <utility>

#include "zelstore/keys/keyformat.h"

namespace zel {

namespace {

constexpr std::string_view form = "dddd-dd-ddTdd:dd:dd.dddZ";

int Number(std::string_view time, std::size_t at, std::size_t digits) {
    return std::atoi(std::string(time.substr(at, digits)).c_str());
}

bool HasForm(std::string_view time) {
    if (time.size() != form.size())
        return false;
    for (std::size_t i = 0; i < form.size(); ++i) {
        const bool isDigit = time[i] >= '0' && time[i] <= '9';
        if (form[i] == 'd' ? !isDigit : time[i] != form[i])
            return false;
    }
    return true;
}

int DaysOfMonth(int year, int month) {
    constexpr int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool isLeapYear = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return days[month - 1] + (month == 2 && isLeapYear ? 1 : 0);
}

bool Exists(std::string_view time) {
    const int year = Number(time, 0, 4), month = Number(time, 5, 2), day = Number(time, 8, 2);
    return year >= 1601 && month >= 1 && month <= 12 && day >= 1 &&
           day <= DaysOfMonth(year, month) && Number(time, 11, 2) < 24 &&
           Number(time, 14, 2) < 60 && Number(time, 17, 2) < 60;
}

}  // namespace

std::string WhyBadTime(std::string_view key) {
    const std::string_view time = ZEL::BeginTimeOf(key);
    if (time.empty())
        return "no begin_time";
    if (!HasForm(time))
        return "begin_time \"" + std::string(time) + "\" is not like 2026-11-12T10:00:00.000Z";
    if (!Exists(time))
        return "begin_time " + std::string(time) + " does not exist or lies before 1601";
    return "";
}

bool RepeatedKeys::Replaces(std::string_view key, std::string_view record) {
    const std::string_view time = ZEL::BeginTimeOf(key);
    if (time != time_) {
        hashes_.clear();
        time_ = time;
    }
    const std::size_t hash = std::hash<std::string_view>()(record);
    const auto [entry, isNew] = hashes_.try_emplace(std::string(key), hash);
    return !isNew && std::exchange(entry->second, hash) != hash;
}

}  // namespace zel
