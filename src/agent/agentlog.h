#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "connection/sessionlistener.h"

namespace zel {

// What the service says, and what it counts beside the ledger. Numbers count from the start of the
// process, as scrapers expect of counters. Any thread.
class AgentLog final : public ISessionListener {
public:
    explicit AgentLog(ISessionListener& inner) : inner_(inner) {}

    void Say(const std::string& text) override;
    bool Interrupted() noexcept override { return inner_.Interrupted(); }
    // For the log alone: what people do is not for all who may read the status.
    void Note(const std::string& text) { inner_.Say(text); }
    // The same text at most once in ten seconds, for what comes with every request.
    void SaySeldom(const std::string& text);

    struct Entry {
        std::string time;  // UTC
        std::string text;
    };
    // The last ten messages, oldest first.
    std::vector<Entry> Last() const;

    // `source`, `kind` and `route` are constants: nothing that a peer has sent may become a name
    // here.
    void CountAccepted(std::string_view source, std::uint64_t count);
    void CountRejected(std::string_view source, std::string_view kind, std::uint64_t count = 1);
    void CountRequest(std::string_view route, int code);
    // By source, and by source and reason.
    std::map<std::string_view, std::uint64_t> Accepted() const;
    std::map<std::pair<std::string_view, std::string_view>, std::uint64_t> Rejected() const;
    std::map<std::pair<std::string_view, int>, std::uint64_t> Requests() const;

    std::atomic<std::uint64_t> duplicates{0};
    std::atomic<std::uint64_t> lostEnrichments{0};
    std::atomic<std::uint64_t> connections{0};
    std::atomic<std::uint64_t> webConnections{0};  // of the page, beside them
    std::atomic<std::uint64_t> inFlight{0};
    std::atomic<std::uint64_t> purgedBytes{0};
    std::atomic<std::uint64_t> purgedFolders{0};

private:
    ISessionListener& inner_;
    mutable std::mutex mutex_;
    std::vector<Entry> last_;
    std::map<std::string, std::uint64_t> seldom_;  // when it was said, in ticks
    std::map<std::string_view, std::uint64_t> accepted_;
    std::map<std::pair<std::string_view, std::string_view>, std::uint64_t> rejected_;
    std::map<std::pair<std::string_view, int>, std::uint64_t> requests_;
};

}  // namespace zel
