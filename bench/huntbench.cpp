#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>

#include "askedstore.h"
#include "benchcallback.h"
#include "common/countedptr.h"
#include "common/hostservices.h"
#include "hunt/rulereader.h"
#include "hunt/ruleset.h"
#include "ratios.h"
#include "samplerecords.h"
#include "zelstore/keymaker.h"

// Rules over one folder of many events, against walking it with LevelDB alone.

namespace bench {

namespace {

// The sample again and again, each time later.
std::vector<Row> SampleRows() {
    const std::vector<std::string>& sample = SampleRecords();
    const char* const told = std::getenv("ZEL_BENCH_RECORDS");
    const std::size_t count = told != nullptr ? std::strtoul(told, nullptr, 10) : 300000;
    std::vector<Row> rows;
    ZEL::EventKeyMaker keys;
    for (std::size_t i = 0; i < count; ++i) {
        std::string record = sample[i % sample.size()], key;
        char time[32];
        std::snprintf(time, sizeof(time), "2026-03-%02zuT%02zu:%02zu:%02zu.%03zuZ",
                      i / 86400 / 10 % 28 + 1, i / 36000 % 24, i / 600 % 60, i / 10 % 60,
                      i % 10 * 100);
        const std::size_t at = record.find("\"begin_time\":{\"value\":\"");
        if (at == record.npos)
            continue;
        record.replace(at + 23, 24, time);
        if (ZEL::Succeeded(keys.Make(record, &key)))
            rows.emplace_back(std::move(key), std::move(record));
    }
    return rows;
}

// As many rules as the public ones that the store was tried with, and of their kinds: mostly of
// launches, with a program and a few parts of its command line, some of them left out again.
std::string MakeRules(std::size_t count) {
    static const char* const programs[] = {"powershell", "cmd",      "rundll32", "regsvr32",
                                           "mshta",      "schtasks", "certutil", "wmic",
                                           "net",        "sc"};
    static const char* const parts[] = {"install",  "payload", "bypass",   "hidden", "download",
                                        "transfer", "dump",    "shadow",   "invoke", "credential",
                                        "service",  "tunnel",  "schedule", "inject", "token"};
    static const struct {
        const char *category, *name, *before, *behind;
    } others[] = {{"file_event", "TargetFilename", "\\\\Temp\\\\", ".ps1"},
                  {"registry_set", "TargetObject", "\\\\CurrentVersion\\\\Run\\\\", ""},
                  {"image_load", "ImageLoaded", "\\\\", ".dll"},
                  {"network_connection", "DestinationHostname", "", ".example"}};
    std::string yaml;
    for (std::size_t i = 0; i < count; ++i) {
        const auto word = [&](std::size_t more) {
            return std::string(parts[(i * 7 + more * 4) % std::size(parts)]) + "-" +
                   std::to_string(i % 83 + more);
        };
        const bool isLaunch = i % 10 < 6;
        const auto& other = others[i % std::size(others)];
        yaml +=
            "---\ntitle: Rule " + std::to_string(i) + "\nlogsource: {product: windows, category: ";
        if (isLaunch) {
            yaml += std::string("process_creation}\ndetection:\n  selection_img:\n") +
                    "    - Image|endswith: '\\" + programs[i % std::size(programs)] + ".exe'\n" +
                    "    - OriginalFileName: '" + programs[i % std::size(programs)] + ".exe'\n" +
                    "  selection_cli:\n    CommandLine|contains:\n";
            for (std::size_t part = 0; part < 3 + i % 9; ++part)
                yaml += "      - ' -" + word(part) + " '\n";
            yaml += "  filter: {ParentImage|startswith: 'C:\\Program Files\\" + word(3) +
                    "\\'}\n  condition: all of selection_* and not filter\n";
        } else {
            yaml += std::string(other.category) + "}\ndetection:\n  selection:\n    " + other.name +
                    "|contains:\n";
            for (std::size_t part = 0; part < 2 + i % 7; ++part)
                yaml +=
                    std::string("      - \"") + other.before + word(part) + other.behind + "\"\n";
            yaml += "  condition: selection\n";
        }
    }
    return yaml;
}

zel::RuleSet SetOf(const std::string& yaml) {
    zel::RuleFile file = zel::ReadRules(yaml, "bench", {});
    if (!file.problems.empty()) {
        std::fprintf(stderr, "%s\n", file.problems.front().what.c_str());
        std::abort();
    }
    return zel::RuleSet(std::move(file.rules), {});
}

std::wstring DocumentOf(const zel::RuleSet& rules) {
    std::string text;
    for (const zel::Narrowing& each : rules.Narrowings())
        text.append(text.empty() ? "" : ",").append(zel::SubQueryOf(each));
    text = R"({"event_query":{"events":[)" + text + "]}}";
    return {text.begin(), text.end()};  // ASCII
}

void Hunt(benchmark::State& state, const std::string& yaml) {
    const zel::RuleSet rules = SetOf(yaml);
    const std::wstring document = DocumentOf(rules);
    for (auto _ : state) {
        zel::RuleRun run(rules);
        TestingCallback callback([&run](std::string_view event) -> std::size_t {
            return run.Test(event) ? run.Hits().size() : 0;
        });
        if (!Ask(document.c_str(), callback) || callback.fitting != 0)
            state.SkipWithError("the rules found other events than expected");
    }
    SetItems(state, FilledRows());
}

void BM_BareWalkValues(benchmark::State& state) {
    WalkBareValues(state);
}
BENCHMARK(BM_BareWalkValues)->Apply(AllThreads);

void BM_AllRules(benchmark::State& state) {
    Hunt(state, MakeRules(325));
}
BENCHMARK(BM_AllRules)->Apply(AllThreads);

void BM_TwiceTheRules(benchmark::State& state) {
    Hunt(state, MakeRules(650));
}
BENCHMARK(BM_TwiceTheRules)->Apply(AllThreads);

void BM_OneRule(benchmark::State& state) {
    Hunt(state,
         "title: t\nlogsource: {product: windows, category: file_event}\n"
         "detection: {s: {TargetFilename|endswith: '\\nowhere.tmp'}, condition: s}\n");
}
BENCHMARK(BM_OneRule)->Apply(AllThreads);

void BM_SameQuery(benchmark::State& state) {
    for (auto _ : state)
        if (!Ask(LR"({"event_query":{"events":[{"begin_time":{"value":"1601-01-01T00:00:00.000Z"},
                     "artifacts":{"target":{"object_type":"file","path":{"operator":{"value":"ends_with"},
                     "value":["\\nowhere.tmp"]}}},"action":["create"]}]}})",
                 0))
            state.SkipWithError("the query gave rows");
    SetItems(state, FilledRows());
}
BENCHMARK(BM_SameQuery)->Apply(AllThreads);

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    using bench::Cost;
    bench::FillStore("hunt", bench::SampleRows());
    return bench::Run(argc, argv,
                      {{"325 rules over all events to the bare walk with values", "BM_AllRules",
                        "BM_BareWalkValues", Cost::cpu, 5.0},
                       {"650 rules to 325", "BM_TwiceTheRules", "BM_AllRules", Cost::cpu, 0},
                       {"one rule that keys decide to the same query", "BM_OneRule", "BM_SameQuery",
                        Cost::cpu, 1.5}});
}
