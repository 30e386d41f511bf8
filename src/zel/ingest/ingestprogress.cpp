#include "zel/ingest/ingestprogress.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include "zel/terminal/messages.h"

namespace zel {

namespace {

// [########............]
std::string Bar(std::uint64_t part, std::uint64_t whole) {
    constexpr std::uint64_t width = 20;
    const auto filled = static_cast<std::size_t>(std::min(part, whole) * width / whole);
    return "[" + std::string(filled, '#') + std::string(width - filled, '.') + "] ";
}

}  // namespace

void IngestProgress::Show(std::uint64_t bytes, std::uint64_t bytesInAll, std::uint64_t events) {
    constexpr auto pause = std::chrono::milliseconds(200);
    constexpr double megabyte = 1e6;
    const Clock::time_point now = Clock::now();
    if (!TalksToTerminal() || now < next_)
        return;
    next_ = now + pause;
    const double seconds = std::chrono::duration<double>(now - start_).count();
    char text[96];
    if (bytesInAll > 0)
        std::snprintf(text, sizeof(text), "%.1f of %.1f MB, %llu events, %.0f/s",
                      static_cast<double>(bytes) / megabyte,
                      static_cast<double>(bytesInAll) / megabyte,
                      static_cast<unsigned long long>(events),
                      seconds > 0 ? static_cast<double>(events) / seconds : 0.0);
    else
        std::snprintf(text, sizeof(text), "%.1f MB, %llu events, %.0f/s",
                      static_cast<double>(bytes) / megabyte,
                      static_cast<unsigned long long>(events),
                      seconds > 0 ? static_cast<double>(events) / seconds : 0.0);
    ShowProgress((bytesInAll > 0 ? Bar(bytes, bytesInAll) : "") + text);
}

}  // namespace zel
