#pragma once

#include <functional>
#include <string>

namespace CLI {
class App;
}

// The command line: which commands there are, and the flags of each.
namespace zel {

// What the program is to do; gives the value that it ends with. May be called once; it owns the
// options that the command line filled.
using Run = std::function<int()>;

// Adds every command. Parsing then sets `run`, which must live as long as `app`. To be called once,
// before parsing. What is wrong with the command line parsing throws, as CLI11 does; what is wrong
// with a value the command tells when it runs.
void AddCommands(CLI::App& app, Run& run);

// After parsing has failed: names the first command or flag that is not known, with the one that
// was probably meant. Empty when that isn't what is wrong. Without this the library would name all
// that was left over and leave the person to find the slip.
std::string UnknownWord(const CLI::App& app);

}  // namespace zel
