#pragma once

#include <cstdint>
#include <string>

// What the program says to people goes to stderr; stdout is for data alone.
namespace zel {

// Values of the process's end that scripts can trust. They are part of what people rely on (docs,
// zel.1): a new cause gets a number of these or one of its own, and none is ever given another
// meaning.
namespace exitCode {
inline constexpr int done = 0;
// For `query`, so that scripts can ask whether there is an event at all, and for a setting that has
// no value. An answer that is empty because parts could not be read is a loss.
inline constexpr int nothingFound = 1;
// What was asked for is not to be run as it is: the command line, or a document or file that it
// names, is wrong. Nothing has been changed.
inline constexpr int usage = 2;
// The store, or a service that it needs, can't be used; also where that shows on the way.
inline constexpr int noStore = 3;
inline constexpr int losses = 4;  // done, but with losses or unreadable folders
inline constexpr int interrupted = 130;
}  // namespace exitCode

// One line "zel: text". Any thread. UTF-8, without a newline at its end; what comes from records or
// file names is to be escaped by the caller (textfit.h), as a terminal would obey it. Takes a
// progress line away first.
void Say(const std::string& text);

// Whether what is said goes to a terminal, where somebody may want more words than a script does.
bool TalksToTerminal();

// A line that the next one overwrites; only where stderr is a terminal. Is not cut: a text that is
// wider than the terminal leaves lines behind, so it has to be short.
void ShowProgress(const std::string& text);
void ClearProgress();

// Whether a table is wanted rather than JSON: by what was asked for, else where stdout is a
// terminal. `output` is what -o was given; empty for nothing.
bool WantsTable(const std::string& output);

// Set by SIGINT, SIGTERM and SIGHUP once WatchInterrupts has run. To be called once, before other
// threads are begun. From then on these signals end nothing by themselves, and writing to a closed
// pipe is an error in place of a signal: each wait and each loop has to look at Interrupted.
void WatchInterrupts();
// Any thread; never turns back to false.
bool Interrupted() noexcept;
// Whether the first of them was SIGTERM, which asks a service to end in order; a person who presses
// Ctrl-C breaks something off.
bool Terminated() noexcept;
// Can be read from then on, for those who poll; -1 when there is none. Not to be read or closed.
// Stays readable, so any number of threads may poll it.
int InterruptDescriptor() noexcept;

// For a service: from now on SIGHUP does not end it. Gives a descriptor that can be read once it
// has come, of which eight bytes are to be read then; -1 when there is none. To be called once.
int WatchHangups();

// While one lives, these signals end the program where it stands, with exitCode::interrupted. For
// long work within libraries that look at nothing, at which there is nothing to lose: no store is
// open and no data was printed.
class InterruptsEndAtOnce {
public:
    InterruptsEndAtOnce() noexcept;
    ~InterruptsEndAtOnce();
    InterruptsEndAtOnce(const InterruptsEndAtOnce&) = delete;
    InterruptsEndAtOnce& operator=(const InterruptsEndAtOnce&) = delete;
};

}  // namespace zel
