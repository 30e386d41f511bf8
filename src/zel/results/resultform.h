#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "zel/results/eventsink.h"
#include "zel/results/fields.h"
#include "zel/results/zonetime.h"

namespace zel {

// How results look: the form of one after the other. For one thread. A form keeps no result, so
// that it can print answers that no memory would hold.
class ResultForm {
public:
    static constexpr std::size_t hostWidth = 16;  // of a table's column

    virtual ~ResultForm() = default;
    // What is to be printed for an event, with whatever stands between two of them. Never refuses:
    // what a table can't read stands in it as it is, escaped.
    virtual std::string Row(const FoundEvent& event, bool isFirst) = 0;
    // What stands behind the last one. `isEmpty` tells that Row was never called; a form that opens
    // something there has to be whole without it.
    virtual std::string End(bool /*isEmpty*/) { return ""; }
};

// What was chosen of how results look.
struct FormChoice {
    // ndjson, json, ocsf, table, csv, timesketch or keys. An unknown name counts as ndjson: the
    // command line has checked it.
    std::string name;
    // Of a table. With 0, where no width is known, no column but the last takes what it likes, so
    // that the columns stand below each other.
    std::size_t columns = 0;
    // For csv and timesketch, and in place of whole events for all forms but ocsf and keys.
    std::vector<Field> fields;
    bool hasHosts = false;    // the events are a fleet's, and tables of whole events show whose
    ZoneTime zone;            // of times in a table and in csv, and of fields
    bool hasColours = false;  // of a table, by the kind of event
    // Then no form prints control characters that an event brought with it.
    bool isForTerminal = false;
};
std::unique_ptr<ResultForm> MakeResultForm(FormChoice choice);

// Columns of the terminal: COLUMNS, else what the terminal on stdout says, else 0.
std::size_t TerminalColumns();

}  // namespace zel
