#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fleet/fleetaddress.h"
#include "fleet/fleetfailure.h"

namespace zel::fleet {

// Settings that go with one statement.
using FleetSettings = std::vector<std::pair<std::string_view, std::string_view>>;

// A server that is spoken to over HTTP, by one connection that is kept. What comes is not trusted:
// it may be slow, garbage or cut off. For one thread; another object may ask at the same time.
class FleetClient {
public:
    // Asked at least every 50 ms while something is waited for; true ends that.
    using IsOver = std::function<bool()>;

    explicit FleetClient(FleetAddress address, IsOver isOver = nullptr);
    ~FleetClient();
    FleetClient(const FleetClient&) = delete;
    FleetClient& operator=(const FleetClient&) = delete;

    // All give false with the failure, of which nothing is left to clean up.

    // One statement, such as CREATE TABLE, with an answer that is short and comes whole.
    bool Run(std::string_view statement, std::string* answer, FleetFailure* failure);
    // A SELECT that ends in FORMAT JSONEachRow: each line of its answer, without its end, as it
    // comes. `onLine` gives false when it has enough, which is success; the server's work then
    // ends. An answer that is cut off, or that ends in the server's own words, is a failure, with
    // what came before it given. Numbers of 64 bits may come as texts. `seconds`: the most that the
    // server is to work on it; 0: as it likes.
    bool Select(std::string_view statement,
                const std::function<bool(std::string_view line)>& onLine, FleetFailure* failure,
                unsigned seconds = 0);
    // Rows for a table, one JSON object a line; `isGzip` tells what `rows` are. All of them are
    // taken, or none; where no answer came nobody knows which.
    bool Insert(std::string_view table, std::string_view rows, bool isGzip, FleetFailure* failure);

    const FleetAddress& Address() const noexcept;
    // As "25.8.1.1"; asked once. Empty with the failure.
    std::string Version(FleetFailure* failure);
    // Its first number; 0 with the failure.
    int MajorVersion(FleetFailure* failure);

private:
    struct Connection;
    const std::unique_ptr<Connection> connection_;
};

}  // namespace zel::fleet
