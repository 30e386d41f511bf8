#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "zel/commands.h"

namespace zel {

// A question as it is typed on one line: the flags of `query` that ask something, quoted as for a
// shell, but that a backslash stands for itself, so that paths need no quotes. Words that belong to
// no flag are looked for in events, as --grep does, in one piece. Beside the flags of `query` there
// are --rule, --without-rule and --level (agent/web/eventquestion.h).
struct SearchLine {
    struct Part {
        std::string name, value;  // as parameters: target_path
        std::size_t at = 0;       // the byte where the word of the value begins
        std::size_t begin = 0;    // the value itself, behind a sign or a quote
    };
    std::vector<Part> parts;
    std::string problem;  // why it can't be asked
    std::size_t problemAt = 0;
};
// Splits the line and asks whether each part, and all together, can be asked.
SearchLine ReadSearchLine(std::string_view line, ReadParameters read);

// The command that asks the same, as a shell takes it. What no flag asks stands behind a #.
std::string CommandOf(const SearchLine& line);

// What of it keys decide, and what texts do; a condition may be in both.
struct SearchDecided {
    std::vector<std::string> byKey, byText;
};
SearchDecided DecidedOf(const SearchLine& line);

// What may stand at a byte of the line, which may be unfinished.
struct Completion {
    std::size_t from = 0;  // what stands from there up to that byte is replaced
    std::string text, hint;
};
// Values of a column that were seen, the most frequent first.
using SeenValues = std::function<std::vector<std::string>(std::string_view column)>;
std::vector<Completion> CompletionsAt(std::string_view line, std::size_t at,
                                      const SeenValues& seen);

// All of it as an object of JSON; with `at` the completions for that byte as well, also for a line
// that can't be asked. False for one without `at`: the object tells why and where.
bool AnswerSearchLine(const std::string& line, std::optional<std::size_t> at, ReadParameters read,
                      const SeenValues& seen, std::string* json);

}  // namespace zel
