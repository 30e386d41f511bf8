#pragma once

namespace wm {

// Where in the source something was noticed. Made by a default argument, it names the caller.
//
// Each routine that notices something takes it as its last argument with Current() as the default,
// and passes it on to the ones it calls; leaving it out there would name the wrapper. The texts are
// the compiler's own and live as long as the module.
struct Place {
    const char* file;
    int line;
    const char* function;

    static constexpr Place Current(const char* file = __builtin_FILE(), int line = __builtin_LINE(),
                                   const char* function = __builtin_FUNCTION()) noexcept {
        return {file, line, function};
    }
};

}  // namespace wm
