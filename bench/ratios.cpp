#include "ratios.h"

#include <algorithm>
#include <cstdio>
#include <map>

namespace bench {

namespace {

constexpr const char* itemsName = "items";

// Seconds for one item, by round.
struct Costs {
    std::vector<double> cpu, wall;
    const std::vector<double>& Of(Cost cost) const { return cost == Cost::cpu ? cpu : wall; }
};

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 != 0 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

class RatioReporter final : public benchmark::BenchmarkReporter {
public:
    explicit RatioReporter(const std::vector<Ratio>& ratios) : ratios_(ratios) {}

    bool ReportContext(const Context&) override { return true; }

    // All rounds of one benchmark.
    void ReportRuns(const std::vector<benchmark::BenchmarkReporter::Run>& runs) override {
        if (runs.front().run_type != Run::RT_Iteration)
            return;  // the library's own sums
        Costs& costs = costs_[runs.front().run_name.function_name];
        for (const Run& run : runs) {
            if (run.error_occurred) {
                std::fprintf(stderr, "%s failed: %s\n", run.benchmark_name().c_str(),
                             run.error_message.c_str());
                failed_ = true;
                continue;
            }
            const auto items = run.counters.find(itemsName);
            const double handled = static_cast<double>(run.iterations) *
                                   (items != run.counters.end() ? items->second.value : 1);
            costs.cpu.push_back(run.cpu_accumulated_time / handled);
            costs.wall.push_back(run.real_accumulated_time / handled);
        }
        if (!costs.cpu.empty())
            std::printf("%-40s %12.3f us CPU %12.3f us wall an item\n",
                        runs.front().run_name.function_name.c_str(), Median(costs.cpu) * 1e6,
                        Median(costs.wall) * 1e6);
    }

    void Finalize() override {
        std::printf("\n%-66s %-5s %6s  %-13s %s\n", "ratio of the cost of an item", "clock",
                    "median", "least to most", "goal");
        for (const Ratio& ratio : ratios_)
            Print(ratio);
    }

    bool Failed() const noexcept { return failed_; }

private:
    void Print(const Ratio& ratio) const {
        const auto part = costs_.find(ratio.part), whole = costs_.find(ratio.whole);
        if (part == costs_.end() || whole == costs_.end())
            return;
        std::vector<double> rounds;
        const std::vector<double>& a = part->second.Of(ratio.cost);
        const std::vector<double>& b = whole->second.Of(ratio.cost);
        for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i)
            rounds.push_back(a[i] / b[i]);
        if (rounds.empty())
            return;
        const auto [least, most] = std::minmax_element(rounds.begin(), rounds.end());
        std::printf("%-66s %-5s %6.2f  %5.2f to %-5.2f", ratio.what,
                    ratio.cost == Cost::cpu ? "CPU" : "wall", Median(rounds), *least, *most);
        if (ratio.goal > 0)
            std::printf(" <= %.2f%s", ratio.goal, Median(rounds) <= ratio.goal ? "" : "  missed");
        std::printf("\n");
    }

    const std::vector<Ratio>& ratios_;
    std::map<std::string, Costs> costs_;
    bool failed_ = false;
};

}  // namespace

void SetItems(benchmark::State& state, std::size_t items) {
    state.counters[itemsName] = static_cast<double>(items);
}

int Run(int argc, char** argv, const std::vector<Ratio>& ratios) {
    // Of an option that stands twice the last one counts.
    std::string rounds = "--benchmark_repetitions=5";
    std::string order = "--benchmark_enable_random_interleaving=true";
    std::string notCounted = "--benchmark_filter=-Counted";  // which are there for valgrind
    std::vector<char*> arguments = {argv[0], rounds.data(), order.data(), notCounted.data()};
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data()))
        return 2;
    RatioReporter reporter(ratios);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return reporter.Failed() ? 1 : 0;
}

}  // namespace bench
