#include <benchmark/benchmark.h>

#include <cstdlib>

#include "common/describedmachine.h"
#include "common/environmentvariablebroker.h"
#include "common/hostservices.h"
#include "zelstore/query/machinepaths.h"
#include "zelstore/schema/eventfields.h"

// What a query pays for its paths on a machine with many users and drives, once the users'
// variables are read. The goal is less than 5 ms for a path that stands for something on each
// drive for each user.
namespace bench {

namespace {

// 50 users with some variables each, and 26 drives.
std::string BigMachine() {
    std::string json = R"j({
        "computer_name": "BIG", "system_directory": "C:\\Windows\\System32",
        "folders": {"WINDOWS": "C:\\Windows", "PROGRAM_FILES": "C:\\Program Files",
                    "PROGRAM_FILESX86": "C:\\Program Files (x86)"},
        "user_folders": {"APPDATA": "AppData\\Roaming", "LOCAL_APPDATA": "AppData\\Local"},
        "drives": {)j";
    for (char letter = 'A'; letter <= 'Z'; ++letter)
        json += std::string(letter > 'A' ? "," : "") + "\"" + letter + "\":\"fixed\"";
    json += "},\"users\":[";
    for (int i = 0; i < 50; ++i) {
        const std::string number = std::to_string(1000 + i);
        json += std::string(i > 0 ? "," : "") +
                R"({"sid":"S-1-5-21-1111111111-2222222222-3333333333-)" + number +
                R"(","account":"user)" + number + R"(","profile":"C:\\Users\\user)" + number +
                R"(","variables":{"Path":"C:\\tools","OneDrive":"%USERPROFILE%\\OneDrive"}})";
    }
    return json + "]}";
}

wm::DescribedMachine& Machine() {
    static const auto machine = [] {
        std::string error;
        auto parsed = wm::DescribedMachine::Parse(BigMachine(), &error);
        if (!parsed)
            std::abort();
        wm::SetMachine(parsed.get());
        return parsed;
    }();
    return *machine;
}

void BuildFilter(benchmark::State& state, const char* type, const char* path) {
    Machine();
    ZEL::Schema::Event event;
    event.FromJson(
        web::json::value::parse(std::string(R"({"artifacts":{"target":{"object_type":")") + type +
                                R"(","path":{"value":[")" + path + R"("]}}}})"));
    std::size_t conditions = 0;
    for (auto _ : state) {
        ZEL::Schema::FilterMap filter;
        if (Failed(ZEL::Schema::ExtractKeyFields(event, true, &ZEL::MachinePaths(), filter)))
            state.SkipWithError("the filter can't be built");
        conditions = filter["target_path_name"].size();
    }
    state.counters["conditions"] = static_cast<double>(conditions);
}
BENCHMARK_CAPTURE(BuildFilter, concrete, "file", R"(C:\\Windows\\System32\\cmd.exe)");
BENCHMARK_CAPTURE(BuildFilter, every_user, "file", R"(CSIDL_APPDATA\\a\\b.exe)");
BENCHMARK_CAPTURE(BuildFilter, every_drive, "file", R"(CSIDL_DRIVE\\a\\b.exe)");
BENCHMARK_CAPTURE(BuildFilter, every_drive_and_user, "file", R"(CSIDL_DRIVE\\%USERNAME%\\b.exe)");
BENCHMARK_CAPTURE(BuildFilter, redirected_for_every_drive_and_user, "file",
                  R"(CSIDL_DRIVE\\%USERNAME%\\%PROGRAMFILES%\\b.exe)");
BENCHMARK_CAPTURE(BuildFilter, registry_of_every_user, "reg_key", R"(HKLM\\Software\\a\\b)");

void BM_LoadUsers(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(ZEL::CEnvironmentVariableBroker(Machine()).Users().size());
}
BENCHMARK(BM_LoadUsers);

}  // namespace
}  // namespace bench
