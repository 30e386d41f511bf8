#include "zel/query/registryroots.h"

#include "common/asciicase.h"

// A registry key has a short name, a long name and the kernel's own, and each sensor has its
// habits. HKCU and HKCR are views: what they show of a user lies under that user's SID.

namespace zel {

namespace {

#define ZEL_USERS R"(HKU|HKEY_USERS|\\REGISTRY\\USER)"
#define ZEL_USER "(?:" ZEL_USERS R"()\\S-\d-\d+-(?:\d+-){1,14}\d+)"

struct Root {
    std::string_view name;   // as a pattern has it
    std::string_view forms;  // all that it stands for, alternatives of a pattern
};

constexpr std::string_view machineForms = R"(HKLM|HKEY_LOCAL_MACHINE|\\REGISTRY\\MACHINE)";
constexpr std::string_view usersForms = ZEL_USERS;
constexpr std::string_view userForms = "HKCU|HKEY_CURRENT_USER|" ZEL_USER;
constexpr std::string_view classesForms = "HKCR|HKEY_CLASSES_ROOT|" ZEL_USER "_Classes";
constexpr std::string_view configForms = "HKCC|HKEY_CURRENT_CONFIG";

// The character behind a name decides whether it is that root (WithAnyRoot), so the order does not
// matter.
constexpr Root roots[] = {
    {"HKLM", machineForms},
    {"HKEY_LOCAL_MACHINE", machineForms},
    {R"(\\REGISTRY\\MACHINE)", machineForms},
    {"HKU", usersForms},
    {"HKEY_USERS", usersForms},
    {R"(\\REGISTRY\\USER)", usersForms},
    {"HKCU", userForms},
    {"HKEY_CURRENT_USER", userForms},
    {"HKCR", classesForms},
    {"HKEY_CLASSES_ROOT", classesForms},
    {"HKCC", configForms},
    {"HKEY_CURRENT_CONFIG", configForms},
};

#undef ZEL_USER
#undef ZEL_USERS

}  // namespace

std::optional<std::string> WithAnyRoot(std::string_view pattern) {
    for (const Root& root : roots) {
        if (!ZEL::StartsWithNoCase(pattern, root.name))
            continue;
        const std::string_view rest = pattern.substr(root.name.size());
        if (rest.empty() || rest.starts_with(R"(\\)") || rest.starts_with('.'))
            return "(?:" + std::string(root.forms) + ")" + std::string(rest);
    }
    return std::nullopt;
}

}  // namespace zel
