#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "fleet/fleetfailure.h"

namespace zel::fleet {

// The file of rows that a fleet refuses, each with the server's words, so that a person can mend
// what is wrong and send them. Lines of JSON; only ever added to. For one thread.
class RefusedRows {
public:
    explicit RefusedRows(std::string name) : name_(std::move(name)) {}

    // On the disk when it returns. False with words, and nothing of the row in the file.
    bool Add(std::string_view table, std::string_view row, const FleetFailure& failure,
             std::string* problem);
    const std::string& Name() const noexcept { return name_; }

private:
    const std::string name_;
};

}  // namespace zel::fleet
