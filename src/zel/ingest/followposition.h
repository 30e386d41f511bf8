#pragma once

#include <cstdint>
#include <string>
#include <tuple>

namespace zel {

// A place in the order of receive-time rows: behind the row of this time and number.
struct FollowPosition {
    std::string time;  // of a receive-time row, 24 characters
    std::uint32_t sequence = 0;
    friend bool operator<(const FollowPosition& a, const FollowPosition& b) {
        return std::tie(a.time, a.sequence) < std::tie(b.time, b.sequence);
    }
};

// The place of a row by its receive-time key. False for another key; `*position` is then unchanged.
// The two are inverse to each other for what the store makes.
bool PositionOfKey(const std::string& key, FollowPosition* position);
std::string KeyOfPosition(const FollowPosition& position);

// The file that keeps a position from one process to the next: one line, the key of the last row
// that was printed. Written whole or not at all. What fails is told. For one thread at a time. The
// file is plain text, so that a person may look at it, or take it away to begin anew; a file that
// is no position is refused and left as it is.
class PositionFile {
public:
    explicit PositionFile(std::string name) : name_(std::move(name)) {}

    // Reads the position; where there is no file yet, makes it with `initial`. False when neither
    // can be done. To be called first; once.
    bool Load(const FollowPosition& initial, FollowPosition* position);
    // On failure the former position stays in the file, so that rows come twice rather than never.
    bool Save(const FollowPosition& position) const;

private:
    const std::string name_;
    std::wstring wideName_;
};

}  // namespace zel
