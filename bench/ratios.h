#pragma once

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace bench {

enum class Cost { cpu, wall };  // of all threads of the process; as a clock shows it

// One comparison: what an item costs in one benchmark, by what it costs in another one. Kinds of
// cost are never mixed.
struct Ratio {
    const char* what;
    const char* part;
    const char* whole;
    Cost cost;
    double goal;  // at most; 0 where none is set
};

// Tells how many things one iteration of a benchmark handles. Each benchmark that a ratio names
// has to.
void SetItems(benchmark::State& state, std::size_t items);

// Runs the benchmarks of the program in five rounds, in an order that changes from round to round,
// and prints what each costs an item and then the ratios: the median of the rounds, the least and
// the most, and the goal. Options of the benchmark library are taken, and go ahead of these. The
// value of main.
int Run(int argc, char** argv, const std::vector<Ratio>& ratios);

}  // namespace bench
