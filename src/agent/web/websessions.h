#pragma once

#include <chrono>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "agent/peer.h"

namespace zel {

// 256 random bits as text; empty where the system gives none. Any thread.
std::string RandomText();

// Who may see the page. A link holds a token that is good once and for five minutes; whoever brings
// it gets a cookie, which is good until it was not used for eight hours. Both have 256 random bits.
// Nothing of it outlives the process. Any thread.
class WebSessions {
public:
    using Clock = std::chrono::steady_clock;

    // A token for who asks for a link; beyond 16 that wait the oldest is forgotten. Empty where the
    // system gives no random numbers.
    std::string MakeToken(const Peer& peer, Clock::time_point now = Clock::now());
    // The cookie's value for a token, which is used up; beyond 32 sessions the one that was idle
    // longest ends. None for what is no token, or no more.
    std::optional<std::string> Open(std::string_view token, Clock::time_point now = Clock::now());
    // Who has that cookie.
    std::optional<Peer> Find(std::string_view cookie, Clock::time_point now = Clock::now());

private:
    struct Secret {
        std::string text;
        Peer peer;
        Clock::time_point since;  // made, or last used
    };
    using Secrets = std::deque<Secret>;  // the one longest unused first

    static Secrets::iterator FindIn(Secrets& secrets, std::string_view text);
    static void Forget(Secrets& secrets, Clock::time_point madeBefore, std::size_t most);

    std::mutex mutex_;
    Secrets tokens_, sessions_;
};

}  // namespace zel
