#include "agent/agentlog.h"

#include "common/hostservices.h"

namespace zel {

namespace {

constexpr std::size_t mostEntries = 10;
constexpr std::uint64_t seldomMs = 10000;

}  // namespace

void AgentLog::Say(const std::string& text) {
    {
        const std::lock_guard hold(mutex_);
        if (last_.size() == mostEntries)
            last_.erase(last_.begin());
        last_.push_back({wm::FormatUtc(wm::Clock().UtcNow()), text});
    }
    inner_.Say(text);
}

void AgentLog::SaySeldom(const std::string& text) {
    const std::uint64_t now = wm::Clock().TickCount64();
    {
        const std::lock_guard hold(mutex_);
        if (seldom_.size() > mostEntries)
            seldom_.clear();
        const auto [place, isNew] = seldom_.emplace(text, now);
        if (!isNew && now - place->second < seldomMs)
            return;
        place->second = now;
    }
    Say(text);
}

std::vector<AgentLog::Entry> AgentLog::Last() const {
    const std::lock_guard hold(mutex_);
    return last_;
}

void AgentLog::CountAccepted(std::string_view source, std::uint64_t count) {
    const std::lock_guard hold(mutex_);
    accepted_[source] += count;
}

void AgentLog::CountRejected(std::string_view source, std::string_view kind, std::uint64_t count) {
    const std::lock_guard hold(mutex_);
    rejected_[{source, kind}] += count;
}

void AgentLog::CountRequest(std::string_view route, int code) {
    const std::lock_guard hold(mutex_);
    ++requests_[{route, code}];
}

std::map<std::string_view, std::uint64_t> AgentLog::Accepted() const {
    const std::lock_guard hold(mutex_);
    return accepted_;
}

std::map<std::pair<std::string_view, std::string_view>, std::uint64_t> AgentLog::Rejected() const {
    const std::lock_guard hold(mutex_);
    return rejected_;
}

std::map<std::pair<std::string_view, int>, std::uint64_t> AgentLog::Requests() const {
    const std::lock_guard hold(mutex_);
    return requests_;
}

}  // namespace zel
