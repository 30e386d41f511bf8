#include "zelstore/schema/vocabulary.h"

#include <stdexcept>

namespace ZEL::Schema {

namespace {

constexpr NameTable::Row objectTypes[] = {
    {0, U("unknown")},
    {1, U("operator_pair")},
    {2, U("string_pair")},
    {3, U("date_pair")},
    {4, U("exist_pair")},
    {5, U("reg_key")},
    {6, U("reg_value")},
    {7, U("file")},
    {8, U("directory")},
    {9, U("process")},
    {10, U("service")},
    {11, U("module")},
    {12, U("session")},
    {13, U("kernel_object")},
    {14, U("network")},
    {15, U("event")},
    {16, U("condition")},
    {17, U("monitor_policy")},
    {18, U("event_query")},
    {19, U("event_query_results")},
    {20, U("eoc_scan_command")},
    {21, U("eoc_scan_results")},
    {22, U("eoc_remediation_command")},
    {23, U("eoc_remediation_result")},
    {24, U("eoc_remediation_results")},
    {25, U("reboot_command")},
    {26, U("submission_schedule")},
    {27, U("schedule_policy")},
    {28, U("guid_pair")},
    {29, U("integer_pair")},
    {30, U("cancel_command")},
    {31, U("cancel_command_result")},
    {32, U("iron_command")},
    {33, U("get_file_command")},
    {34, U("get_file_command_result")},
    {35, U("amsi")},
    {36, U("etw")},
    {37, U("url")},
};

constexpr NameTable::Row actionTypes[] = {
    {0, U("unknown")},  {1, U("create")},   {2, U("delete")},         {3, U("open")},
    {4, U("rename")},   {5, U("modify")},   {6, U("set_attributes")}, {7, U("encrypt")},
    {8, U("decrypt")},  {9, U("close")},    {10, U("set_security")},  {11, U("restore")},
    {12, U("set")},     {13, U("launch")},  {14, U("terminate")},     {15, U("injection")},
    {16, U("load")},    {17, U("unload")},  {18, U("logon")},         {19, U("logoff")},
    {20, U("connect")}, {21, U("accept")},  {22, U("request")},       {23, U("statistic")},
    {24, U("scan")},    {25, U("generic")}, {26, U("enumerate")},     {27, U("reputation_query")},
};

constexpr NameTable::Row operatorTypes[] = {
    {operatorUnknown, U("unknown")},
    {operatorEquals, U("equals")},
    {operatorDoesNotEqual, U("does_not_equal")},
    {operatorContains, U("contains")},
    {operatorDoesNotContain, U("does_not_contain")},
    {operatorStartsWith, U("starts_with")},
    {operatorEndsWith, U("ends_with")},
    {operatorGreaterThan, U("greater_than")},
    {operatorGreaterThanOrEqual, U("greater_than_or_equal")},
    {operatorLessThan, U("less_than")},
    {operatorLessThanOrEqual, U("less_than_or_equal")},
    {operatorFitsPattern, U("fits_pattern")},
};

constexpr NameTable::Row existStates[] = {
    {1, U("exists")}, {2, U("does_not_exist")}, {3, U("partial")}, {4, U("error")}};

constexpr NameTable::Row sessionStates[] = {{1, U("logged-on")}, {2, U("logged-off")}};

template <typename Map, typename Key>
const typename Map::mapped_type& Find(const Map& map, const Key& key) {
    const auto found = map.find(key);
    if (found == map.end())
        throw std::out_of_range("invalid map<K, T> key");
    return found->second;
}

}  // namespace

NameTable::NameTable(const Row* rows, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        numbers_.emplace(rows[i].name, rows[i].number);
        names_.emplace(rows[i].number, rows[i].name);
    }
}

std::int32_t NameTable::Number(const Text& name) const {
    return Find(numbers_, name);
}

const Text& NameTable::Name(std::int32_t number) const {
    return Find(names_, number);
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
