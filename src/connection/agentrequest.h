#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "common/result.h"

// How a program finds the agent, and one request to it.
namespace zel {

// From now on this process reaches its store through the agent that listens at this socket; empty:
// it does not. While short answers are waited for `isOver` is asked, which may be null: true ends
// the wait. To be called before the first session.
void UseAgent(const std::string& socket, bool (*isOver)() noexcept);
// Empty where the store is reached in its directory.
const std::string& AgentSocket() noexcept;
// Where an agent listens that nobody named.
inline constexpr const char* defaultAgentSocket = "/run/zel/zel.sock";
bool IsSocket(const std::string& path) noexcept;

// Results that only a store behind an agent gives.
namespace agentResult {
inline constexpr ZEL::HRESULT lost = ZEL::FromWin32(1236);      // it is not there, or went away
inline constexpr ZEL::HRESULT overTime = ZEL::FromWin32(1460);  // its limit of time has ended it
inline constexpr ZEL::HRESULT busy = ZEL::FromWin32(170);       // it has too much to do
}  // namespace agentResult
// Whether the agent could not be asked, which for a person is as a store that can't be opened.
constexpr bool IsAgentOut(ZEL::HRESULT result) noexcept {
    return result == agentResult::lost || result == agentResult::busy ||
           result == ZEL::hr::accessDenied;
}

// One request and its answer, over a connection of its own to a Unix socket. What comes is not
// trusted: it may be slow, garbage or cut off. For one thread.
class AgentRequest {
public:
    // Asked at least every 20 ms while something is waited for; true ends that.
    using IsOver = std::function<bool()>;

    explicit AgentRequest(std::string socket, IsOver isOver)
        : socket_(std::move(socket)), isOver_(std::move(isOver)) {}
    ~AgentRequest() { Close(); }
    AgentRequest(const AgentRequest&) = delete;
    AgentRequest& operator=(const AgentRequest&) = delete;

    // Sends it and reads the answer's head. agentResult::lost, aborted when it is over, or what the
    // agent's refusal means: accessDenied, busy, invalidArgument, notFound, fail. Words are in
    // Problem then.
    ZEL::HRESULT Send(std::string_view method, std::string_view target, std::string_view body);
    // Puts what has come of the answer's body behind `*out`, at least a byte, or nothing at its
    // end. Fails as Send; an answer that is cut off fails too.
    ZEL::HRESULT Read(std::string* out);
    // All of it, which may have `most` bytes.
    ZEL::HRESULT ReadAll(std::size_t most, std::string* out);

    const std::string& Problem() const noexcept { return problem_; }

private:
    ZEL::HRESULT Connect();
    ZEL::HRESULT SendAll(std::string_view bytes);
    ZEL::HRESULT ReadHead();
    ZEL::HRESULT ReadSome();
    ZEL::HRESULT ReadLine(std::size_t most, std::string* line);
    ZEL::HRESULT BeginChunk();
    ZEL::HRESULT Refusal(int status);
    ZEL::HRESULT Await(short events);
    ZEL::HRESULT Lost(const std::string& why);
    bool TakeHeader(std::string_view line);
    void Close() noexcept;

    const std::string socket_;
    const IsOver isOver_;
    int descriptor_ = -1;
    std::string buffer_;  // what has come and was not looked at
    bool isChunked_ = false, isFirstChunk_ = true, hasLength_ = false, hasEnded_ = false;
    std::size_t left_ = 0;  // of the body, or of the chunk in hand
    std::string problem_;
};

// A request whose answer is short. `*answer` is the answer's body.
ZEL::HRESULT CallAgent(std::string_view method, std::string_view target, std::string_view body,
                       std::string* answer, std::string* problem);

}  // namespace zel
