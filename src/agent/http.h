#pragma once

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
    bool hasBody = false;
    std::uint64_t bodyLength = 0;  // 0 when it comes in chunks
    std::uint16_t port = 0;        // that it came to; 0: the socket
    Peer peer;                     // at the socket
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
    bool closes = false;  // the connection ends with this answer
    bool isCut = false;   // the connection ends without one
    // In place of the body: what comes is sent on as it comes, and ended when the peer goes away.
    std::shared_ptr<AnswerStream> stream = nullptr;
};

// Who answers. Any thread.
class IHttpHandler {
public:
    using Answer = std::function<void(HttpReply)>;

    // Ahead of the body: why the request is not taken, or nothing. On the thread that serves all
    // connections, so it must be quick.
    virtual std::optional<HttpReply> Refuse(const HttpHead& head) = 0;
    // `answer` is to be called once, at any time, on any thread.
    virtual void Handle(HttpRequest request, Answer answer) = 0;

protected:
    ~IHttpHandler() = default;
};

}  // namespace zel
