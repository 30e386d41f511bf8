#pragma once

#include <functional>
#include <string>

namespace CLI {
class App;
}

// The command line: which commands there are, and the flags of each.
namespace zel {

// What the program is to do; gives the value that it ends with.
using Run = std::function<int()>;

// Adds every command. Parsing then sets `run`, which must live as long as `app`.
void AddCommands(CLI::App& app, Run& run);

// After parsing has failed: names the first command or flag that is not known, with the one that
// was probably meant. Empty when that isn't what is wrong.
std::string UnknownWord(const CLI::App& app);

}  // namespace zel
