#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace ZEL::soak {

// The account of all rows that were offered to the store, kept by the process that outlives those
// which use it.
class Ledger {
public:
    Ledger(std::filesystem::path directory, unsigned producers)
        : directory_(std::move(directory)), producers_(producers) {}

    // Takes in what a phase has left. Then walks all folders of the closed store, and tells what is
    // damaged, stands there twice or wasn't taken, and what is lost.
    void Settle(unsigned phase);

    // `gone`: with a folder that an earlier walk has seen.
    std::uint64_t sent = 0, stored = 0, refusals = 0, gone = 0, lost = 0;
    std::size_t folders = 0;

private:
    void Add(unsigned phase);
    void Walk(const std::string& folder);
    void Account(std::uint32_t& fate);

    const std::filesystem::path directory_;
    const unsigned producers_;
    std::map<std::string, std::uint32_t> numbers_;  // of all folders that there ever were
    std::vector<bool> isPresent_;
    // A Fate of each row; acknowledged + n when it stands in folder n.
    std::map<unsigned, std::vector<std::uint32_t>> fates_;
};

}  // namespace ZEL::soak
