#pragma once

#include <string>
#include <string_view>

namespace zel::fleet {

// What is to be done when a server could not be asked, or has refused.
enum class FleetRemedy {
    again,   // the same once more, later
    later,   // likewise, much later: the server has too much to do with what it has
    halves,  // the same in smaller parts
    aside,   // rows: some of them is no good, and stays so
    stop,    // a person has to look: table, user, statement
    over,    // whoever asked wants no more
};

struct FleetFailure {
    FleetRemedy remedy = FleetRemedy::again;
    int code = 0;      // the server's own; 0 where it gave none
    int status = 0;    // of HTTP; 0 where no answer came
    std::string text;  // words for people, in one line without control characters
};

// By the server's code, where there is one, since its status differs between versions; else by the
// status; with neither no answer came.
FleetRemedy RemedyFor(int code, int status) noexcept;
// The code in the beginning of a message, "Code: 60, ..."; 0 for another text.
int CodeIn(std::string_view message) noexcept;
// A message as people are shown it: its first line or so, without what a terminal would obey.
std::string ShownMessage(std::string_view message);

}  // namespace zel::fleet
