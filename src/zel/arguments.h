#pragma once

#include "commands.h"

namespace CLI {
class App;
}

namespace zel {

// The flags of the commands that have many.
void AddQuery(CLI::App& app, QueryOptions& options);
void AddEnrich(CLI::App& app, EnrichOptions& options);

}  // namespace zel
