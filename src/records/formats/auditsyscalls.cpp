#include "records/formats/auditsyscalls.h"

#include <auparse.h>

#include <memory>
#include <utility>

// The audit library knows the tables of all processors, but gives them only as the interpretation
// of a line. So it is shown a line with the two numbers, once for each pair.
//
// The library splits and joins lines too, and that is left unused: it keeps all events of two
// seconds with a search through them for each line, tells nothing of where a line stood, and looks
// up users in the machine that reads the log, which is not the one that wrote it.

namespace zel {

namespace {

// More pairs than processors and calls there are come from a broken log.
constexpr std::size_t mostNames = 4096;

std::string Interpretation(auparse_state_t* state, const char* field) {
    if (auparse_first_record(state) <= 0 || auparse_find_field(state, field) == nullptr)
        return {};
    const char* const text = auparse_interpret_field(state);
    return text == nullptr || std::string_view(text).starts_with("unknown") ? "" : text;
}

std::string LookUp(std::string_view arch, std::string_view number) {
    const std::string line = "type=SYSCALL msg=audit(1.000:1): arch=" + std::string(arch) +
                             " syscall=" + std::string(number) + "\n";
    const std::unique_ptr<auparse_state_t, decltype(&auparse_destroy)> state(
        auparse_init(AUSOURCE_BUFFER, line.c_str()), &auparse_destroy);
    if (!state || Interpretation(state.get(), "arch").empty())
        return {};
    return Interpretation(state.get(), "syscall");
}

bool IsNumber(std::string_view text, std::size_t longest, std::string_view digits) {
    return !text.empty() && text.size() <= longest && text.find_first_not_of(digits) == text.npos;
}

}  // namespace

std::string_view AuditSyscalls::Name(std::string_view arch, std::string_view number) {
    if (!IsNumber(arch, 8, "0123456789abcdefABCDEF") || !IsNumber(number, 5, "0123456789"))
        return {};
    std::string key = std::string(arch) + " " + std::string(number);
    const auto known = names_.find(key);
    if (known != names_.end())
        return known->second;
    if (names_.size() >= mostNames)
        names_.clear();
    return names_.emplace(std::move(key), LookUp(arch, number)).first->second;
}

}  // namespace zel
