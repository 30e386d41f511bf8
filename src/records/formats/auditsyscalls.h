#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>

namespace zel {

// The names of system calls, whose numbers differ between processors. One thread at a time.
class AuditSyscalls {
public:
    // `arch` and `number` as a log has them (c000003e, 59). Empty for what isn't known. The view
    // lives until the next call.
    std::string_view Name(std::string_view arch, std::string_view number);

private:
    std::unordered_map<std::string, std::string> names_;
};

}  // namespace zel
