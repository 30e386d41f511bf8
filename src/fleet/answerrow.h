#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zel::fleet {

// A row of an answer of FleetQuestion::Page.
struct FleetRow {
    unsigned part = 0;  // the sub-query that found it, counted in its step
    std::string host, key;
    std::string event;  // its text, as it was stored
    std::string beginTime;
    std::uint32_t sequence = 0;
    std::uint64_t receiveMs = 0;  // since 1970
    std::uint32_t receiveNo = 0;
};

struct LineParser;

// Reads the lines of an answer. Keeps its memory from one to the next. For one thread.
class FleetRowReader {
public:
    FleetRowReader();
    ~FleetRowReader();
    // False for a line that is no such row; `*row` is then not to be used.
    bool Read(std::string_view line, FleetRow* row);

private:
    const std::unique_ptr<LineParser> parser_;
};

// The enrichments of rows, as a store joins them. They stand in a table of their own and are asked
// for behind a page, some rows at a time:
//
//   while (!rows.empty()) {
//       EnrichmentJoin join;
//       std::size_t taken = 0;
//       // ask join.Statement(rows, &taken), and give each line to join.Add
//       // of the first `taken` rows: join.Finds(row), join.ArrayOf(row)
//       rows = rows.subspan(taken);
//   }
class EnrichmentJoin {
public:
    EnrichmentJoin();
    ~EnrichmentJoin();
    // For the first rows of those given, at least one of them: as many as one statement may name.
    std::string Statement(std::span<const FleetRow> rows, std::size_t* taken) const;
    // A line of the answer; false for one that is none.
    bool Add(std::string_view line);

    // Whether any that is not silent belongs to the row: what no_live_enriched_events leaves out.
    bool HasLive(const FleetRow& row) const;
    // A JSON array in the order of their keys; empty where there are none.
    std::string ArrayOf(const FleetRow& row) const;

private:
    struct Enrichments {
        bool hasLive = false;
        std::map<std::string, std::string> texts;  // by their keys
    };
    const std::unique_ptr<LineParser> parser_;
    std::map<std::pair<std::string, std::string>, Enrichments> rows_;  // by host and event's key
};

// The event's text with an array of enrichments, which may be empty, as a store gives it.
std::string ResultText(const FleetRow& row, std::string_view enrichments);
// The same of a row by time of receipt, beside which a fleet keeps nothing.
std::string ReceiptText(const FleetRow& row);

}  // namespace zel::fleet
