#include "zelstore/schema/vocabulary.h"

#include <stdexcept>

// The names with numbers. Others may have stored a number, so a row never changes its own, and a
// name that is given up keeps its place. The tables are made of plain arrays at the first use:
// nothing runs while the module is loaded.

namespace ZEL::Schema {

namespace {

constexpr NameTable::Row objectTypes[] = {
    {0, ZEL_TEXT("unknown")},
    {1, ZEL_TEXT("operator_pair")},
    {2, ZEL_TEXT("string_pair")},
    {3, ZEL_TEXT("date_pair")},
    {4, ZEL_TEXT("exist_pair")},
    {5, ZEL_TEXT("reg_key")},
    {6, ZEL_TEXT("reg_value")},
    {7, ZEL_TEXT("file")},
    {8, ZEL_TEXT("directory")},
    {9, ZEL_TEXT("process")},
    {10, ZEL_TEXT("service")},
    {11, ZEL_TEXT("module")},
    {12, ZEL_TEXT("session")},
    {13, ZEL_TEXT("kernel_object")},
    {14, ZEL_TEXT("network")},
    {15, ZEL_TEXT("event")},
    {16, ZEL_TEXT("condition")},
    {17, ZEL_TEXT("monitor_policy")},
    {18, ZEL_TEXT("event_query")},
    {19, ZEL_TEXT("event_query_results")},
    {20, ZEL_TEXT("eoc_scan_command")},
    {21, ZEL_TEXT("eoc_scan_results")},
    {22, ZEL_TEXT("eoc_remediation_command")},
    {23, ZEL_TEXT("eoc_remediation_result")},
    {24, ZEL_TEXT("eoc_remediation_results")},
    {25, ZEL_TEXT("reboot_command")},
    {26, ZEL_TEXT("submission_schedule")},
    {27, ZEL_TEXT("schedule_policy")},
    {28, ZEL_TEXT("guid_pair")},
    {29, ZEL_TEXT("integer_pair")},
    {30, ZEL_TEXT("cancel_command")},
    {31, ZEL_TEXT("cancel_command_result")},
    {32, ZEL_TEXT("iron_command")},
    {33, ZEL_TEXT("get_file_command")},
    {34, ZEL_TEXT("get_file_command_result")},
    {35, ZEL_TEXT("amsi")},
    {36, ZEL_TEXT("etw")},
    {37, ZEL_TEXT("url")},
};

constexpr NameTable::Row actionTypes[] = {
    {0, ZEL_TEXT("unknown")},        {1, ZEL_TEXT("create")},
    {2, ZEL_TEXT("delete")},         {3, ZEL_TEXT("open")},
    {4, ZEL_TEXT("rename")},         {5, ZEL_TEXT("modify")},
    {6, ZEL_TEXT("set_attributes")}, {7, ZEL_TEXT("encrypt")},
    {8, ZEL_TEXT("decrypt")},        {9, ZEL_TEXT("close")},
    {10, ZEL_TEXT("set_security")},  {11, ZEL_TEXT("restore")},
    {12, ZEL_TEXT("set")},           {13, ZEL_TEXT("launch")},
    {14, ZEL_TEXT("terminate")},     {15, ZEL_TEXT("injection")},
    {16, ZEL_TEXT("load")},          {17, ZEL_TEXT("unload")},
    {18, ZEL_TEXT("logon")},         {19, ZEL_TEXT("logoff")},
    {20, ZEL_TEXT("connect")},       {21, ZEL_TEXT("accept")},
    {22, ZEL_TEXT("request")},       {23, ZEL_TEXT("statistic")},
    {24, ZEL_TEXT("scan")},          {25, ZEL_TEXT("generic")},
    {26, ZEL_TEXT("enumerate")},     {27, ZEL_TEXT("reputation_query")},
};

constexpr NameTable::Row operatorTypes[] = {
    {operatorUnknown, ZEL_TEXT("unknown")},
    {operatorEquals, ZEL_TEXT("equals")},
    {operatorDoesNotEqual, ZEL_TEXT("does_not_equal")},
    {operatorContains, ZEL_TEXT("contains")},
    {operatorDoesNotContain, ZEL_TEXT("does_not_contain")},
    {operatorStartsWith, ZEL_TEXT("starts_with")},
    {operatorEndsWith, ZEL_TEXT("ends_with")},
    {operatorGreaterThan, ZEL_TEXT("greater_than")},
    {operatorGreaterThanOrEqual, ZEL_TEXT("greater_than_or_equal")},
    {operatorLessThan, ZEL_TEXT("less_than")},
    {operatorLessThanOrEqual, ZEL_TEXT("less_than_or_equal")},
    {operatorFitsPattern, ZEL_TEXT("fits_pattern")},
};

constexpr NameTable::Row existStates[] = {{1, ZEL_TEXT("exists")},
                                          {2, ZEL_TEXT("does_not_exist")},
                                          {3, ZEL_TEXT("partial")},
                                          {4, ZEL_TEXT("error")}};

constexpr NameTable::Row sessionStates[] = {{1, ZEL_TEXT("logged-on")},
                                            {2, ZEL_TEXT("logged-off")}};

[[noreturn]] void ThrowUnknown() {
    throw std::out_of_range("invalid map<K, T> key");
}

}  // namespace

NameTable::NameTable(const Row* rows, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        const auto number = static_cast<std::size_t>(rows[i].number);
        // Numbers are dense, so that a place for each costs less than a search.
        if (names_.size() <= number)
            names_.resize(number + 1);
        names_[number] = rows[i].name;
        numbers_.emplace(rows[i].name, rows[i].number);
    }
}

std::optional<std::int32_t> NameTable::Find(TextView name) const noexcept {
    const auto found = numbers_.find(name);
    return found != numbers_.end() ? std::optional(found->second) : std::nullopt;
}

std::int32_t NameTable::Number(TextView name) const {
    const auto found = Find(name);
    if (!found)
        ThrowUnknown();
    return *found;
}

const Text& NameTable::Name(std::int32_t number) const {
    if (number < 0 || static_cast<std::size_t>(number) >= names_.size() ||
        names_[static_cast<std::size_t>(number)].empty())
        ThrowUnknown();
    return names_[static_cast<std::size_t>(number)];
}

const NameTable& ObjectTypes() {
    static const NameTable table(objectTypes);
    return table;
}
const NameTable& ActionTypes() {
    static const NameTable table(actionTypes);
    return table;
}
const NameTable& OperatorTypes() {
    static const NameTable table(operatorTypes);
    return table;
}
const NameTable& ExistStates() {
    static const NameTable table(existStates);
    return table;
}
const NameTable& SessionStates() {
    static const NameTable table(sessionStates);
    return table;
}

}  // namespace ZEL::Schema
