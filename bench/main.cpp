#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "common/hostservices.h"
#include "fixture.h"
#include "ratioreporter.h"

namespace bench {

namespace {

// A day long ago for the process that fills the store, so that what is ingested under measurement
// goes to another folder.
class OldClock final : public wm::IClock {
public:
    wm::SystemTime UtcNow() noexcept override { return {2026, 3, 0, 1, 0, 0, 0, 0}; }
    std::uint64_t TickCount64() noexcept override { return 1; }
};

TempFolder& StoreFolder() {
    static TempFolder folder("store");
    return folder;
}

// In a process of its own: the database of a process is one, and this one has to close its.
bool FillStore() {
    const pid_t child = ::fork();
    if (child == 0) {
        static OldClock clock;
        wm::SetClock(&clock);
        ::_exit(IngestAll() ? 0 : 1);
    }
    int status = 1;
    return child > 0 && ::waitpid(child, &status, 0) == child && status == 0;
}

}  // namespace

const std::filesystem::path& StoreDirectory() {
    return StoreFolder().Path();
}

std::string FilledFolder() {
    return StoreDirectory() / "20260301";
}

}  // namespace bench

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    wm::SetPathToken(L"%ZELDataStore%", bench::StoreDirectory().wstring());
    if (!bench::FillStore()) {
        std::fprintf(stderr, "the store can't be filled\n");
        return 1;
    }
    bench::RatioReporter reporter(
        {{"making a key to parsing its JSON", "BM_MakeKey", "BM_ParseJson"},
         {"parsing JSON alone to raw write", "BM_ParseJson", "BM_RawWrite"},
         {"ingest to raw write", "BM_Ingest", "BM_RawWrite"},
         {"full scan, every row delivered, to bare walk", "BM_FullScan", "BM_BareWalk"},
         {"path ends_with, no match, to bare walk", "BM_PathEndsWith", "BM_BareWalk"},
         {"hash equals, no match, to bare walk", "BM_HashEquals", "BM_BareWalk"},
         {"path fits_pattern, no match, to bare walk", "BM_PathFitsPattern", "BM_BareWalk"},
         {"path with wildcards, no match, to bare walk", "BM_PathWildcard", "BM_BareWalk"}});
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return 0;
}
