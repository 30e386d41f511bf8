#include <algorithm>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/body.h"
#include "agent/linestream.h"
#include "common/countedptr.h"
#include "fuzz.h"
#include "zelstore/eventstoreproxy.h"

// Bodies as the service takes them. Input: how it is packed, in pieces of what length it comes, and
// how often a part is taken; then the body. Whatever it is, it is unpacked within its limit, and
// lines that come piece by piece are those that come at once, with the same ids.

namespace {

using namespace zel;
using ZEL::fuzz::Check;
using ZEL::fuzz::Input;

constexpr std::size_t mostUnpacked = 1U << 20;

LiveConfig SmallLines() {
    AgentConfig config;
    config.lineSize = 1024;
    return LiveConfig(std::move(config));
}

// What is taken, for comparing: ids alone, or keys and records as well. An intake remembers what it
// has seen, so in parts the latter may differ.
void Tell(const Delivery& delivery, bool isWhole, std::vector<std::string>* told) {
    for (const SpoolItem& item : delivery.items)
        told->push_back(isWhole ? item.id + " " + item.key + " " + item.record : item.id);
}

void TellProblems(const LineProblems& problems, std::vector<std::string>* told) {
    for (const auto& [line, problem] : problems)
        told->push_back(std::to_string(line) + " " + std::string(problem.kind));
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const ZEL::CountedPtr<ZEL::IEventStore7> store(new ZEL::EventStoreProxy());
    static const LiveConfig config = SmallLines();
    constexpr const char* packings[] = {"", "gzip", "zstd"};
    Input input(data, size);
    HttpHead head;
    head.contentEncoding = packings[input.Below(3)];
    const std::size_t piece = input.Byte() + 1;
    const unsigned partEach = input.Below(4);  // so many pieces; 0: one part
    std::string body = input.Rest(), problem;
    const int status = UnpackBody(head, mostUnpacked, &body, &problem);
    Check((status == 0) == problem.empty(), {"a refusal without words", problem});
    if (status != 0 || body.size() > mostUnpacked ||
        body.find_first_not_of(" \t\r\n") == body.npos ||
        body[body.find_first_not_of(" \t\r\n\xEF\xBB\xBF")] == '[')
        return 0;

    std::vector<std::string> whole, wholeProblems, parts, partProblems;
    Intake intake(*store, config.Now());
    LineProblems problems;
    const auto note = [&](std::uint64_t line, Intake::Outcome outcome) {
        if (!outcome.problem.kind.empty())
            problems.emplace_back(line, std::move(outcome.problem));
    };
    ForEachLine(body, UINT64_MAX, [&](const CutLine& line) {
        note(line.number, intake.TakeLine(line.text, IdOfLine("k", line)));
    });
    note(0, intake.End());
    Tell(intake.Taken(), partEach == 0, &whole);

    LineStream stream(*store, config, "k");
    std::uint64_t offset = 0;
    const auto take = [&] {
        const StreamPart part = stream.TakePart();
        Check(part.offset >= offset && part.offset <= body.size(), {"a place that goes back"});
        offset = part.offset;
        Tell(*part.delivery, partEach == 0, &parts);
        TellProblems(part.problems, &partProblems);
    };
    unsigned pieces = 0;
    for (std::size_t at = 0; at < body.size(); at += piece) {
        stream.Feed(std::string_view(body).substr(at, piece));
        if (partEach != 0 && ++pieces % partEach == 0)
            take();
    }
    stream.End();
    take();
    Check(offset == body.size(), {"not read to its end", body});
    Check(whole == parts, {"pieces give other events", body});
    TellProblems(problems, &wholeProblems);
    Check(wholeProblems.size() == partProblems.size(), {"pieces give other problems", body});
    return 0;
}
