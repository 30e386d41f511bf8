#include "questions/keynames.h"

#include <algorithm>
#include <iterator>

#include "zelstore/schema/vocabulary.h"

namespace zel {

namespace {

std::vector<std::string> NamesOf(const ZEL::Schema::NameTable& table) {
    std::vector<std::string> names;
    for (std::size_t number = 0; number < table.Size(); ++number) {
        const ZEL::Schema::Text& name = table.Name(static_cast<std::int32_t>(number));
        names.emplace_back(name.begin(), name.end());
    }
    return names;
}

}  // namespace

std::vector<std::string> KeyNames(std::string_view column) {
    if (column == "action")
        return NamesOf(ZEL::Schema::ActionTypes());
    if (column == "object")
        return NamesOf(ZEL::Schema::ObjectTypes());
    return {};
}

bool IsAction(std::string_view name) {
    return ZEL::Schema::ActionTypes().Find(ZEL::Schema::Text(name.begin(), name.end())).has_value();
}

bool IsObjectToAsk(std::string_view name) {
    constexpr std::string_view kinds[] = {
        "process",       "file",    "directory", "module",  "service", "reg_key", "reg_value",
        "kernel_object", "network", "url",       "session", "etw",     "amsi"};
    return std::find(std::begin(kinds), std::end(kinds), name) != std::end(kinds);
}

}  // namespace zel
