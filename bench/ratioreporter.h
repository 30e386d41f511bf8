#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace bench {

// Keeps the rates of a run, so that their ratios can be told at its end.
class RatioReporter final : public benchmark::ConsoleReporter {
public:
    struct Ratio {
        const char* what;
        const char* part;
        const char* whole;
    };
    explicit RatioReporter(std::vector<Ratio> ratios)
        : ConsoleReporter(OO_Tabular), ratios_(std::move(ratios)) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            const auto rate = run.counters.find("items_per_second");
            if (rate != run.counters.end())
                rates_[run.run_name.function_name] = rate->second;
        }
        ConsoleReporter::ReportRuns(runs);
    }
    void Finalize() override {
        for (const Ratio& ratio : ratios_)
            if (rates_[ratio.part] > 0 && rates_[ratio.whole] > 0)
                std::printf("ratio: %s: %.2f\n", ratio.what,
                            rates_[ratio.part] / rates_[ratio.whole]);
    }

private:
    std::vector<Ratio> ratios_;
    std::map<std::string, double> rates_;
};

}  // namespace bench
