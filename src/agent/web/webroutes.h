#pragma once

#include <string>

#include "agent/access.h"
#include "agent/httpserver.h"
#include "agent/web/webparts.h"
#include "agent/web/websessions.h"

namespace zel {

// Of the server that serves the page.
// Keys and conditions stand in the head, and are as long as whoever made an event chose.
inline constexpr HttpLimits webLimits{64, 4, 4U << 20, 10, 60, 1U << 20};

// Who may see the page, and which of its requests goes where. The port that this serves knows the
// page's ways alone.
class WebRoutes final : public IHttpHandler {
public:
    // Outlives this.
    explicit WebRoutes(WebParts& parts) : parts_(parts) {}

    // A link that opens the page once, for a port of this machine; empty where there is no random.
    std::string MakeLink(const Peer& peer, std::uint16_t port);

    std::optional<HttpReply> Refuse(const HttpHead& head) override;
    std::shared_ptr<BodyTaker> TakerOf(const HttpHead&) override { return nullptr; }
    void Handle(HttpRequest request, Answer answer) override;

private:
    std::optional<HttpReply> RefuseUncounted(const HttpHead& head);
    HttpReply Open(const HttpHead& head);

    WebParts& parts_;
    WebSessions sessions_;
    TokenBrake brake_;
};

}  // namespace zel
