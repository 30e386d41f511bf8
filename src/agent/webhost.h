#pragma once

#include "agent/parts.h"
#include "agent/web/webparts.h"

namespace zel {

// The agent as the page sees it.
class AgentWebHost final : public IWebHost {
public:
    // Both outlive this.
    AgentWebHost(AgentParts& parts, const Live<AccessRules>& access)
        : parts_(parts), access_(access) {}

    void Note(const std::string& line) override { parts_.log.Note(line); }
    void CountRequest(std::string_view route, int status) override {
        parts_.log.CountRequest(route, status);
    }
    bool Has(const Peer& peer, Right right) const override {
        return access_->rights.Has(peer, right);
    }
    Followers* Following() override { return &parts_.followers; }
    std::string Settled() const override;
    void Annotate(std::string key, std::string json,
                  const std::function<void(bool isStored)>& done) override;

private:
    AgentParts& parts_;
    const Live<AccessRules>& access_;
};

}  // namespace zel
