#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "fleet/answerrow.h"

namespace zel::fleet {

// Of which machines, and in which order an answer comes.
struct FleetScope {
    std::vector<std::string> hosts;  // as they stand in the table; empty: all
    enum class Order {
        parts,        // one sub-query after the other, each from the oldest event on
        oldestFirst,  // all sub-queries together
        newestFirst,
    } order = Order::parts;
};

// An event_query document as statements for a fleet's tables: the same question as a store would
// answer. For one thread.
//
// An answer is read in steps, each of which gives its rows in pages; nearly every document has one
// step. Each event of a host comes once, whichever sub-queries want it; with Order::parts where the
// first of them stands. Which rows of a page are wanted, Decide says: a row may stand in the table
// several times, and a server can't test all that a store can, and then gives more than was asked
// for.
//
//   for (std::size_t step = 0; step < question->Steps(); ++step) {
//       FleetRow last;
//       for (bool isMore = true, isFirst = true; isMore; isFirst = false) {
//           // ask question->Page(step, 1000, isFirst ? nullptr : &last), and of each row:
//           // question->Decide(step, row); keep the last one, wanted or not, as `last`
//           isMore = (as many rows came as were asked for);
//       }
//   }
class FleetQuestion {
public:
    // Null with words when the document can't be asked: it is none, a time makes no range, a
    // pattern can't be tested there and nothing else narrows its sub-query. Paths are expanded for
    // the machine that asks. All that is wrong is found here; later operations don't fail.
    static std::unique_ptr<FleetQuestion> Make(const std::string& document, FleetScope scope,
                                               std::string* problem);
    ~FleetQuestion();

    // The document's limit, over all steps, as a store counts it: at least 1; negative: none.
    std::int64_t MostRows() const noexcept;
    bool JoinsEnrichments() const noexcept;  // into what is wanted (EnrichmentJoin)
    bool LeavesOutLive() const noexcept;     // events with an enrichment that is not silent

    std::size_t Steps() const noexcept;
    // Rows then come by time of receipt, and each is a receipt.
    bool IsByReceive(std::size_t step) const noexcept;
    // Whether the server's answer may hold other rows than wanted ones, of which some may come
    // several times.
    bool GivesTooMuch(std::size_t step) const noexcept;

    // A SELECT in FORMAT JSONEachRow of at most `rows` rows, from the first one on or from behind
    // the last row of the page before, whose lines FleetRowReader reads.
    std::string Page(std::size_t step, std::uint64_t rows, const FleetRow* after) const;

    enum class Verdict {
        wanted,
        unwanted,
        lost,  // a pattern takes too long on it: it can't be said, and was reported as a lost row
    };
    // To be called for each row once, as they come.
    Verdict Decide(std::size_t step, const FleetRow& row);

private:
    struct State;
    explicit FleetQuestion(std::unique_ptr<State> state);
    const std::unique_ptr<State> state_;
};

// For each host that has rows: host, events (rows, those that stand there twice included), and
// oldest_ms and newest_ms, its first and last receipt in milliseconds since 1970. FORMAT
// JSONEachRow. Of rows since `sinceMs`; 0: of all, which reads one column of the whole table.
std::string HostsStatement(const std::vector<std::string>& hosts, std::uint64_t sinceMs);

}  // namespace zel::fleet
