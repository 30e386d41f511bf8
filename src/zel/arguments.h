#pragma once

#include "zel/commands.h"

namespace CLI {
class App;
}

namespace zel {

// The commands with their flags.
void AddIngest(CLI::App& app, IngestOptions& options);
void AddQuery(CLI::App& app, QueryOptions& options);
void AddEnrich(CLI::App& app, EnrichOptions& options);
void AddPurge(CLI::App& app, PurgeOptions& options);
void AddInfo(CLI::App& app, InfoOptions& options);
void AddMonitor(CLI::App& app, MonitorOptions& options);
void AddSettings(CLI::App& app, SettingsOptions& options);
void AddMachine(CLI::App& app, MachineOptions& options);

}  // namespace zel
