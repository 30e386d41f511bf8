#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "zel/results/eventsink.h"

namespace zel {

// How results look: the form of one after the other. For one thread. A form keeps no result, so
// that it can print answers that no memory would hold.
class ResultForm {
public:
    virtual ~ResultForm() = default;
    // What is to be printed for an event, with whatever stands between two of them. Never refuses:
    // what a table can't read stands in it as it is, escaped.
    virtual std::string Row(const FoundEvent& event, bool isFirst) = 0;
    // What stands behind the last one. `isEmpty` tells that Row was never called; a form that opens
    // something there has to be whole without it.
    virtual std::string End(bool /*isEmpty*/) { return ""; }
};

// ndjson, json, ocsf, table or keys. A table fits `columns`; with 0, where no width is known, the
// actor alone is cut, so that the columns stand below each other. An unknown name counts as ndjson:
// the command line has checked it.
std::unique_ptr<ResultForm> MakeResultForm(const std::string& name, std::size_t columns);

// Columns of the terminal: COLUMNS, else what the terminal on stdout says, else 0.
std::size_t TerminalColumns();

}  // namespace zel
