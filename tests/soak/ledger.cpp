#include "ledger.h"

#include <leveldb/db.h>

#include <fstream>
#include <iterator>
#include <memory>

#include "rows.h"

// A walk reads the folders with the library alone, not through the store that is on trial.

namespace ZEL::soak {

namespace fs = std::filesystem;

namespace {

constexpr std::uint32_t seen = 0x80000000;  // in this walk

bool IsKeyOf(const RowId& id, std::string_view key) {
    constexpr std::string_view start = "r<receive_time>";
    if (id.kind == receive)
        return key.starts_with(start) && key.substr(start.size()) > TimeText(id.phase, 0, 0) &&
               key.substr(start.size()) < TimeText(id.phase, daysOfAPhase, 0);
    const std::string eventKey = EventKey(id);
    return id.kind == event ? key == eventKey
                            : key.starts_with(eventKey + "<silent_sequence>") &&
                                  key.ends_with(id.kind == live ? "nt>0" : "nt>1");
}

}  // namespace

void Ledger::Settle(unsigned phase) {
    Add(phase);
    folders = stored = 0;
    isPresent_.clear();
    for (const auto& entry : fs::directory_iterator(directory_ / "store")) {
        Walk(entry.path().filename().string());
        ++folders;
    }
    isPresent_.resize(numbers_.size() + 1);
    for (auto of = fates_.begin(); of != fates_.end();) {
        const std::uint64_t before = stored;
        for (std::uint32_t& fate : of->second)
            Account(fate);
        of = stored == before ? fates_.erase(of) : std::next(of);
    }
    if (lost > 0)
        Broken(std::to_string(lost) + " rows are lost");
}

void Ledger::Add(unsigned phase) {
    const auto file = [this](unsigned of) { return directory_ / ("fates-" + std::to_string(of)); };
    std::ifstream stream(file(phase), std::ios::binary);
    std::vector<std::uint32_t>& fates = fates_[phase];
    fates.assign(std::istreambuf_iterator<char>(stream), {});
    if (fates.size() != std::size_t{producers_} * mostEvents * kinds)
        Broken("the account of a phase is not whole");
    for (const std::uint32_t fate : fates) {
        sent += fate != unsent;
        refusals += fate == refused;
    }
    if (phase > 0)
        fs::remove(file(phase - 1));
}

void Ledger::Account(std::uint32_t& fate) {
    const bool wasSeen = (fate & seen) != 0;
    fate &= ~seen;
    if (fate < acknowledged)
        return;
    if (wasSeen) {
        ++stored;
        return;
    }
    ++(fate == acknowledged || isPresent_[fate - acknowledged] ? lost : gone);
    fate = purged;
}

void Ledger::Walk(const std::string& folder) {
    const std::uint32_t number = numbers_.emplace(folder, numbers_.size() + 1).first->second;
    isPresent_.resize(numbers_.size() + 1);
    isPresent_[number] = true;
    leveldb::DB* opened = nullptr;
    const auto status = leveldb::DB::Open({}, (directory_ / "store" / folder).string(), &opened);
    const std::unique_ptr<leveldb::DB> db(opened);
    if (!status.ok())
        return Broken(status.ToString());
    leveldb::ReadOptions options;
    options.verify_checksums = true;
    options.fill_cache = false;
    const std::unique_ptr<leveldb::Iterator> row(db->NewIterator(options));
    for (row->SeekToFirst(); row->Valid(); row->Next()) {
        const std::string key = row->key().ToString(), value = row->value().ToString();
        const RowId id = IdOf(value);
        const auto of = fates_.find(id.phase);
        if (of == fates_.end() || id.producer >= producers_ || value != Value(id) ||
            !IsKeyOf(id, key)) {
            Broken(folder + " holds a strange row: " + key);
            continue;
        }
        std::uint32_t& fate =
            of->second[(std::size_t{id.producer} * mostEvents + id.number) * kinds + id.kind];
        if (fate != acknowledged && fate != acknowledged + number)
            Broken(folder + " holds a row for a second time, or one that wasn't taken: " + key);
        fate = (acknowledged + number) | seen;
    }
    if (!row->status().ok())
        Broken(row->status().ToString());
}

}  // namespace ZEL::soak
