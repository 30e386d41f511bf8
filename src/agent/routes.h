#pragma once

#include "agent/parts.h"

namespace zel {

// Which request goes where, and who may send it.
class Routes final : public IHttpHandler {
public:
    // All outlive this.
    Routes(AgentParts& parts, const Live<AccessRules>& access) : parts_(parts), access_(access) {}

    std::optional<HttpReply> Refuse(const HttpHead& head) override;
    std::shared_ptr<BodyTaker> TakerOf(const HttpHead& head) override;
    void Handle(HttpRequest request, Answer answer) override;

private:
    AgentParts& parts_;
    const Live<AccessRules>& access_;
    TokenBrake brake_;
};

}  // namespace zel
