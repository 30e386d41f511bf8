#include "agent/web/websessions.h"

#include <sys/random.h>

#include <array>
#include <utility>

#include "agent/access.h"

namespace zel {

namespace {

constexpr auto tokenTime = std::chrono::minutes(5);
constexpr auto sessionTime = std::chrono::hours(8);
constexpr std::size_t mostTokens = 16;
constexpr std::size_t mostSessions = 32;

}  // namespace

std::string RandomText() {
    constexpr std::string_view digits = "0123456789abcdef";
    std::array<unsigned char, 32> bytes{};
    if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
        return "";
    std::string text;
    for (const unsigned char byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

// All are looked at, so that the time tells nothing of where one stands.
WebSessions::Secrets::iterator WebSessions::FindIn(Secrets& secrets, std::string_view text) {
    auto found = secrets.end();
    for (auto it = secrets.begin(); it != secrets.end(); ++it)
        if (IsSecret(text, it->text))
            found = it;
    return found;
}

void WebSessions::Forget(Secrets& secrets, Clock::time_point madeBefore, std::size_t most) {
    while (!secrets.empty() && (secrets.front().since < madeBefore || secrets.size() > most))
        secrets.pop_front();
}

std::string WebSessions::MakeToken(const Peer& peer, Clock::time_point now) {
    std::string token = RandomText();
    if (token.empty())
        return token;
    const std::lock_guard hold(mutex_);
    tokens_.push_back({token, peer, now});
    Forget(tokens_, now - tokenTime, mostTokens);
    return token;
}

std::optional<std::string> WebSessions::Open(std::string_view token, Clock::time_point now) {
    std::string cookie = RandomText();
    const std::lock_guard hold(mutex_);
    Forget(tokens_, now - tokenTime, mostTokens);
    const auto found = FindIn(tokens_, token);
    if (found == tokens_.end() || cookie.empty())
        return std::nullopt;
    sessions_.push_back({cookie, std::move(found->peer), now});
    tokens_.erase(found);
    Forget(sessions_, now - sessionTime, mostSessions);
    return cookie;
}

std::optional<Peer> WebSessions::Find(std::string_view cookie, Clock::time_point now) {
    const std::lock_guard hold(mutex_);
    Forget(sessions_, now - sessionTime, mostSessions);
    const auto found = FindIn(sessions_, cookie);
    if (found == sessions_.end())
        return std::nullopt;
    Secret used = std::move(*found);
    sessions_.erase(found);
    used.since = now;
    sessions_.push_back(std::move(used));
    return sessions_.back().peer;
}

}  // namespace zel
