#pragma once

#include <filesystem>
#include <functional>

namespace ZEL::soak {

struct Options {
    unsigned seconds = 60, seed = 1, producers = 4;
    // Holds the store in `store`, and beside it the files by which the processes speak.
    std::filesystem::path directory;

    unsigned PhaseSeconds() const { return seconds < 60 ? 1 : 5; }
    unsigned PhasesOfAProcess() const { return seconds < 60 ? 3 : 8; }
    // A byte for the fate of each row: of each kind, of each number, of each producer.
    std::filesystem::path Fates(unsigned phase) const {
        return directory / ("fates-" + std::to_string(phase));
    }
    // Kilobytes, threads and descriptors in use after a phase, queries, results, and faults.
    std::filesystem::path Figures() const { return directory / "figures"; }
    std::filesystem::path End() const { return directory / "end"; }  // there when it is time
};

// The life of a process that uses the store: phases of load, each between Initialize and Shutdown
// of the loaded component. Stands still after each phase until somebody has it go on.
void BearLoad(const Options& options, unsigned firstPhase);

}  // namespace ZEL::soak
