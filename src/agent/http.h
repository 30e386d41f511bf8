#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "agent/asking/answerstream.h"
#include "agent/peer.h"

// HTTP as the service sees it: heads, whole requests, answers.
namespace zel {

// What a request says ahead of its body. Texts as they were sent; empty when they were not.
struct HttpHead {
    std::string method;
    std::string path;   // without the query
    std::string query;  // behind the "?"
    std::string host, origin, fetchSite, authorization, accept;
    std::string contentType, contentEncoding, idempotencyKey;
    std::string cookie, ifNoneMatch, lastEventId;
    bool hasBody = false;
    bool isChunked = false;
    std::uint64_t bodyLength = 0;  // 0 when it comes in chunks
    std::uint16_t port = 0;        // that it came to; 0: the socket
    Peer peer;                     // at the socket

    std::optional<std::uint32_t> Sender() const {
        return peer.isKnown ? std::optional<std::uint32_t>(peer.uid) : std::nullopt;
    }
};

struct HttpRequest {
    HttpHead head;
    std::string body;
};

struct HttpReply {
    int status = 200;
    std::string type = "application/json";
    std::string body;
    std::vector<std::pair<std::string, std::string>> headers;
    bool closes = false;                 // the connection ends with this answer
    bool isCut = false;                  // the connection ends without one
    std::chrono::milliseconds pause{0};  // ahead of it; of a refusal alone
    // In place of the body: what comes is sent on as it comes, and ended when the peer goes away.
    std::shared_ptr<AnswerStream> stream = nullptr;
    // Of a stream whose first bytes tell the status: asked when they, or its end, have come.
    std::function<int(const AnswerStream&)> statusOf = nullptr;
};

// What is to be done behind a piece of a body.
struct BodyStep {
    std::optional<HttpReply> reply;  // that, and the rest of the body is not wanted
    bool again = false;              // without one: call again, there is more of what was given
};

// Takes a body piece by piece, so that it may have any length. One call at a time, on any thread,
// the next when the one before has told its step.
class BodyTaker {
public:
    using Next = std::function<void(BodyStep)>;

    virtual ~BodyTaker() = default;
    // `next` is to be called once, at any time, on any thread. Behind the last piece, which may be
    // empty, it has a reply at some time.
    virtual void Take(std::string piece, bool isLast, const Next& next) = 0;
    // In place of the next piece: the server stops, and this is the reply.
    virtual HttpReply Interrupt() = 0;
};

// Who answers. Any thread.
class IHttpHandler {
public:
    using Answer = std::function<void(HttpReply)>;

    // Ahead of the body: why the request is not taken, or nothing. On the thread that serves all
    // connections, so it must be quick.
    virtual std::optional<HttpReply> Refuse(const HttpHead& head) = 0;
    // Who takes the body of a request that was not refused; null: it is to be handed over as a
    // whole. On the same thread.
    virtual std::shared_ptr<BodyTaker> TakerOf(const HttpHead& head) = 0;
    // `answer` is to be called once, at any time, on any thread.
    virtual void Handle(HttpRequest request, Answer answer) = 0;

protected:
    ~IHttpHandler() = default;
};

}  // namespace zel
