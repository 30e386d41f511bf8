#pragma once

#include <cstdint>
#include <string>

// What the program says to people goes to stderr; stdout is for data alone.
namespace zel {

// Values of the process's end that scripts can trust.
namespace exitCode {
inline constexpr int done = 0;
inline constexpr int nothingFound = 1;
inline constexpr int usage = 2;
inline constexpr int noStore = 3;
inline constexpr int losses = 4;  // done, but with losses or unreadable folders
inline constexpr int interrupted = 130;
}  // namespace exitCode

// One line "zel: text".
void Say(const std::string& text);

// Whether what is said goes to a terminal, where somebody may want more words than a script does.
bool TalksToTerminal();

// A line that the next one overwrites; only where stderr is a terminal.
void ShowProgress(const std::string& text);
void ClearProgress();

// Whether a table is wanted rather than JSON: by what was asked for, else where stdout is a
// terminal.
bool WantsTable(const std::string& output);

// Set by SIGINT, SIGTERM and SIGHUP once WatchInterrupts has run.
void WatchInterrupts();
bool Interrupted() noexcept;
// Whether the first of them was SIGTERM, which asks a service to end in order; a person who presses
// Ctrl-C breaks something off.
bool Terminated() noexcept;
// Can be read from then on, for those who poll; -1 when there is none. Not to be read or closed.
int InterruptDescriptor() noexcept;

}  // namespace zel
