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

// Gives each standard stream that the caller has closed a place of its own. Without that the next
// file that is opened would take it, and messages would end up in a database.
bool HasStandardStreams();

// One line "zel: text".
void Say(const std::string& text);

// Hands what was printed to the system. False, with a message, when it could not be written; a
// reader that went away is no failure.
bool FlushOutput();

// A line that the next one overwrites; only where stderr is a terminal.
void ShowProgress(const std::string& text);
void ClearProgress();

// Whether a table is wanted rather than JSON: by what was asked for, else where stdout is a
// terminal.
bool WantsTable(const std::string& output);

// Set by SIGINT, SIGTERM and SIGHUP once WatchInterrupts has run.
void WatchInterrupts();
bool Interrupted() noexcept;

// "0x80004005" and, for the codes that people meet, what they mean.
std::string Describe(std::int32_t result);

}  // namespace zel
