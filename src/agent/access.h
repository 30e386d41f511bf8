#pragma once

#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "agent/http.h"

namespace zel {

// The tokens of the port.
struct AccessTokens {
    std::string write;  // empty: nobody has the right
    std::string read;
};

// Who may do what.
struct AccessRules {
    AccessTokens tokens;
    GroupRights rights;
};

// The first line of the file, which must be at least 16 characters. False with a message.
bool ReadToken(const std::string& file, std::string* token, std::string* problem);

// Why a request is not taken, by its head alone. Browsers are kept out: they reach every port of
// the machine for any page, and tell so by headers that no shipper sends.
std::optional<HttpReply> RefuseAccess(const HttpHead& head, Right needed, const AccessRules& rules);

// Slows down who tries tokens: of more than ten wrong ones within a second each waits a second. Any
// thread.
class TokenBrake {
public:
    // One was wrong: how long its answer is to wait.
    std::chrono::milliseconds Fail();

private:
    std::mutex mutex_;
    std::chrono::steady_clock::time_point since_;
    unsigned failures_ = 0;
};

// Whether they are the same, in a time that tells nothing of where they differ; an empty secret is
// nobody's.
bool IsSecret(std::string_view given, std::string_view secret);

// Answers of one line.
HttpReply PlainReply(int status, std::string text);

}  // namespace zel
