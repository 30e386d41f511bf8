#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// An answer of the agent as bytes, between the agent and programs of the same version: one frame
// behind the other.
//
//   frame  := type (1 byte) length (4 bytes) payload
//   number := 4 bytes, the lowest first; text := number of its bytes, and these
//   r rows      resume time (text), resume sequence, count of rows, rows (texts)
//   f failure   of a database: its folder (text), operation, result
//   u untested  rows that could not be tested: how many, and why (text)
//   d damaged   reads that met damaged data: how many
//   e end       result, 1 when no limit has cut results off, words for people (text, mostly empty)
namespace zel::frames {

enum class Type : char { rows = 'r', failure = 'f', untested = 'u', damaged = 'd', end = 'e' };

inline constexpr std::size_t headLength = 5;
// A longer one is no frame: a batch has a hundred rows, of which none is longer than what a store
// takes.
inline constexpr std::uint32_t longest = 1U << 29;

// Puts one frame behind a text; it ends with the object. For one thread.
class Writer {
public:
    Writer(Type type, std::string* out);
    ~Writer();
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    Writer& Number(std::uint32_t number);
    Writer& Text(std::string_view text);

private:
    std::string& out_;
    const std::size_t begin_;
};

// Reads a payload. What is beyond its end reads as 0 and nothing, and makes it bad. For one thread.
class Reader {
public:
    explicit Reader(std::string_view payload) : rest_(payload) {}

    std::uint32_t Number();
    // Points into the payload.
    std::string_view Text();
    // Whether all was there and nothing is left.
    bool IsGood() const noexcept { return isGood_ && rest_.empty(); }
    bool HasMore() const noexcept { return isGood_ && !rest_.empty(); }

private:
    std::string_view rest_;
    bool isGood_ = true;
};

// The number in the first bytes, which must be there.
std::uint32_t NumberAt(const char* bytes) noexcept;

}  // namespace zel::frames
