#pragma once

#include <string>
#include <vector>

#include "agent/parameters.h"

namespace zel {

// What a report is to tell.
struct ReportAsk {
    struct Event {
        std::string key, note;
    };
    Parameters parameters;  // the question
    std::string command;    // the same for `zel query`
    std::string title;
    std::vector<Event> events;
    std::string store, version;  // of whoever makes it
};

// Of the body of a request. False with words for what is no such thing, or too much.
bool ReadReportAsk(const std::string& body, ReportAsk* ask, std::string* problem);

}  // namespace zel
