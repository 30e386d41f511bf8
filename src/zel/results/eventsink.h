#pragma once

#include <string>
#include <string_view>

namespace zel {

// An event on its way out. Views are good during the call that they are given to.
struct FoundEvent {
    std::string_view text;       // UTF-8, as the store gave it, with what was joined to it
    std::string_view key;        // empty where no key was asked for, or none can be made
    std::string_view host = {};  // of a fleet's events; empty for those of one store
};

// What becomes of an answer's events: printed as they come, kept and put in order, counted. It is
// given each event once, in the store's order. For one thread.
class EventSink {
public:
    virtual ~EventSink() = default;

    // A cheap look ahead of all tests: false for an event that would change nothing.
    virtual bool MayMatter(std::string_view /*text*/) { return true; }
    // This and the next two are false when the output takes no more.
    virtual bool Take(const FoundEvent& event) = 0;
    // Behind each batch of the store's: what was printed is to leave the program.
    virtual bool Flush() { return true; }
    // Once, behind the last event; not called where the answer was broken off.
    virtual bool Finish() = 0;
    // Why it takes no more, where that is not the output's doing; empty for none.
    virtual std::string Problem() const { return ""; }
};

}  // namespace zel
