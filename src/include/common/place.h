#pragma once

namespace wm {

// Where in the source something was noticed. Made by a default argument, it names the caller.
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
