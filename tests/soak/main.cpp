#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <csignal>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "ledger.h"
#include "load.h"
#include "rows.h"

// A soak of the store. This process keeps the account. Another one, made anew now and then, loads
// the component and bears the load; after each phase it stands still while the account is settled.

namespace {

using namespace ZEL::soak;
namespace fs = std::filesystem;

// What a process has in use after a phase.
struct Level {
    std::uint64_t kilobytes = 0, threads = 0, files = 0;
};

std::ostream& operator<<(std::ostream& out, const Level& level) {
    return out << level.kilobytes << " KiB, " << level.threads << " threads, " << level.files
               << " descriptors";
}

class Soak {
public:
    explicit Soak(const Options& options)
        : options_(options), ledger_(options.directory, options.producers) {}

    // A process that bears the load, to its end. False when the time is over or something broke.
    bool RunProcess(char** arguments);
    bool Summarise();

private:
    void EndPhase();
    void CheckLevels();

    const Options options_;
    const std::chrono::steady_clock::time_point end_ =
        std::chrono::steady_clock::now() + std::chrono::seconds(options_.seconds);
    Ledger ledger_;
    std::vector<Level> levels_;  // of the present process
    Level first_, last_;         // at the end of the first process and of the last
    unsigned phases_ = 0, processes_ = 0;
    std::uint64_t queries_ = 0, results_ = 0;
};

bool Soak::RunProcess(char** arguments) {
    std::string added[] = {"--first-phase", std::to_string(phases_), "--directory",
                           options_.directory.string()};
    std::vector<char*> words;
    while (*arguments != nullptr)
        words.push_back(*arguments++);
    for (std::string& word : added)
        words.push_back(word.data());
    words.push_back(nullptr);
    // Executed anew: a mere copy of this process would lack the threads of the database library.
    const pid_t child = ::fork();
    if (child == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::execv("/proc/self/exe", words.data());
        ::_exit(127);
    }
    levels_.clear();
    int status = 0;
    while (::waitpid(child, &status, WUNTRACED) == child && WIFSTOPPED(status)) {
        EndPhase();
        ::kill(child, SIGCONT);
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 || levels_.empty())
        Broken("the process that bears the load ended with status " + std::to_string(status));
    else
        CheckLevels();
    return Faults() == 0 && !fs::exists(options_.End());
}

void Soak::EndPhase() {
    Level level;
    std::uint64_t queries = 0, results = 0, faults = 1;
    std::ifstream(options_.Figures()) >> level.kilobytes >> level.threads >> level.files >>
        queries >> results >> faults;
    if (faults > 0)
        Broken("the phase told of faults");
    const std::uint64_t sent = ledger_.sent, refusals = ledger_.refusals, gone = ledger_.gone;
    ledger_.Settle(phases_);
    std::cout << "phase " << phases_ << ": " << ledger_.sent - sent << " sent, "
              << ledger_.refusals - refusals << " refused, " << ledger_.gone - gone << " purged, "
              << ledger_.stored << " stored in " << ledger_.folders << " folders; " << queries
              << " queries, " << results << " results; " << level << std::endl;
    levels_.push_back(level);
    ++phases_;
    queries_ += queries;
    results_ += results;
    if (Faults() > 0 || std::chrono::steady_clock::now() > end_)
        std::ofstream(options_.End()).put('\n');
}

// Memory is compared between the halves of a process's life.
void Soak::CheckLevels() {
    // The database library and the job manager start one thread each when they need it.
    constexpr unsigned lateThreads = 2;
    constexpr std::uint64_t spareKilobytes = 8192;
    const auto half = levels_.begin() + static_cast<std::ptrdiff_t>(levels_.size() / 2);
    std::uint64_t most = 0;
    for (auto level = levels_.begin(); level != levels_.end(); ++level) {
        if (level->threads > levels_[0].threads + lateThreads || level->files > levels_[0].files)
            Broken("threads or descriptors have grown");
        if (level < half)
            most = std::max(most, level->kilobytes);
        else if (levels_.size() > 5 && level->kilobytes > most + most / 8 + spareKilobytes)
            Broken("memory has grown");
    }
    last_ = levels_.back();
    if (processes_++ == 0)
        first_ = last_;
}

bool Soak::Summarise() {
    const Ledger& l = ledger_;
    if (l.sent != l.stored + l.refusals + l.gone)
        Broken("the sum is not right");
    std::cout << "sent " << l.sent << " = stored " << l.stored << " + refused and told "
              << l.refusals << " + purged " << l.gone << " + lost " << l.lost << "\n"
              << phases_ << " phases in " << processes_ << " processes, " << queries_
              << " queries, " << results_ << " results\nafter the first process: " << first_
              << "; after the last: " << last_ << "\n"
              << (Faults() == 0 ? "whole" : "BROKEN") << std::endl;
    return Faults() == 0;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    int firstPhase = -1;  // of the process that bears the load
    fs::path place = fs::temp_directory_path();
    CLI::App app("Many producers, queries, purges and restarts, and every row accounted for.");
    app.add_option("--seconds", options.seconds, "how long");
    app.add_option("--seed", options.seed, "of all random choices");
    app.add_option("--producers", options.producers, "threads that insert")
        ->check(CLI::Range(1U, mostProducers));
    app.add_option("--store", place, "where to make the directory to work in");
    app.add_option("--first-phase", firstPhase)->group("");
    app.add_option("--directory", options.directory)->group("");
    CLI11_PARSE(app, argc, argv);
    if (firstPhase >= 0) {
        BearLoad(options, static_cast<unsigned>(firstPhase));
        return 0;
    }
    std::string directory = (place / "soak-XXXXXX").string();
    if (::mkdtemp(directory.data()) == nullptr) {
        std::cerr << "soak: " << directory << " can't be made\n";
        return 2;
    }
    options.directory = directory;
    fs::create_directory(options.directory / "store");
    Soak soak(options);
    while (soak.RunProcess(argv)) {
    }
    if (!soak.Summarise()) {
        std::cerr << "soak: what is left stands in " << directory << "\n";
        return 1;
    }
    fs::remove_all(options.directory);
    return 0;
}
