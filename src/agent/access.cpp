#include "agent/access.h"

#include <algorithm>
#include <fstream>

#include "common/asciicase.h"

namespace zel {

namespace {

constexpr std::size_t shortestToken = 16;

// "localhost", "127.0.0.1" or "[::1]", with the port where there is one. Any other name may have
// been made to lead here by who owns it.
bool IsOwnHost(std::string_view host, std::uint16_t port) {
    for (const std::string_view name : {"localhost", "127.0.0.1", "[::1]"}) {
        if (!ZEL::StartsWithNoCase(host, name))
            continue;
        const std::string_view rest = host.substr(name.size());
        if (rest.empty() || (port != 0 && rest == ":" + std::to_string(port)))
            return true;
    }
    return false;
}

std::string DecodeBase64(std::string_view text) {
    constexpr std::string_view letters =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    unsigned held = 0;
    int bits = 0;
    for (const char letter : text) {
        const std::size_t value = letters.find(letter);
        if (value == letters.npos)
            break;
        held = (held << 6 | static_cast<unsigned>(value)) & 0xFFFF;
        bits += 6;
        if (bits >= 8)
            bytes.push_back(static_cast<char>(held >> (bits -= 8)));
    }
    return bytes;
}

// Bearer T; ApiKey T, or ApiKey with "id:T" in base64; Basic with any user and T as the password.
bool IsAllowed(std::string_view authorization, std::string_view token) {
    const std::size_t blank = std::min(authorization.find(' '), authorization.size());
    const std::string_view scheme = authorization.substr(0, blank);
    const std::string_view given = authorization.substr(std::min(blank + 1, authorization.size()));
    const bool isApiKey = ZEL::EqualsNoCase(scheme, "ApiKey");
    if ((ZEL::EqualsNoCase(scheme, "Bearer") || isApiKey) && IsSecret(given, token))
        return true;
    if (!isApiKey && !ZEL::EqualsNoCase(scheme, "Basic"))
        return false;
    const std::string pair = DecodeBase64(given);
    const std::size_t colon = pair.find(':');
    return colon != pair.npos && IsSecret(std::string_view(pair).substr(colon + 1), token);
}

}  // namespace

bool IsSecret(std::string_view given, std::string_view secret) {
    if (secret.empty() || given.size() != secret.size())
        return false;
    unsigned differ = 0;
    for (std::size_t i = 0; i < secret.size(); ++i)
        differ |= static_cast<unsigned char>(given[i]) ^ static_cast<unsigned char>(secret[i]);
    return differ == 0;
}

HttpReply PlainReply(int status, std::string text) {
    return {status, "text/plain", std::move(text) + "\n", {}};
}

std::chrono::milliseconds TokenBrake::Fail() {
    constexpr unsigned mostFailures = 10;
    constexpr auto period = std::chrono::seconds(1);
    const auto now = std::chrono::steady_clock::now();
    const std::lock_guard hold(mutex_);
    if (now - since_ >= period) {
        since_ = now;
        failures_ = 0;
    }
    return ++failures_ > mostFailures ? std::chrono::milliseconds(period)
                                      : std::chrono::milliseconds(0);
}

bool ReadToken(const std::string& file, std::string* token, std::string* problem) {
    std::ifstream stream(file);
    if (!std::getline(stream, *token)) {
        *problem = "the token file " + file + " can't be read";
        return false;
    }
    if (token->ends_with('\r'))
        token->pop_back();
    if (token->size() >= shortestToken)
        return true;
    *problem = "the token in " + file + " is too short: 16 characters at least, better 43";
    return false;
}

namespace {

HttpReply Forbidden(Right needed) {
    switch (needed) {
        case Right::write:
            return PlainReply(403, "this user may not bring events (rights.write_group)");
        case Right::annotate:
            return PlainReply(403, "this user may not add enrichments (rights.annotate_group)");
        case Right::administer:
            return PlainReply(403, "this user may not purge (rights.admin_group)");
        default:
            return PlainReply(403, "this user may not ask (rights.read_group)");
    }
}

}  // namespace

std::optional<HttpReply> RefuseAccess(const HttpHead& head, Right needed,
                                      const AccessRules& rules) {
    if (!IsOwnHost(head.host, head.port))
        return PlainReply(421, "this is not " + (head.host.empty() ? "that host" : head.host));
    const bool isSameSite =
        head.fetchSite.empty() || head.fetchSite == "none" || head.fetchSite == "same-origin";
    if (!head.origin.empty() || !isSameSite)
        return PlainReply(403, "pages of browsers have no access");
    if (head.port == 0)
        return rules.rights.Has(head.peer, needed) ? std::nullopt
                                                   : std::optional(Forbidden(needed));
    if (needed == Right::annotate || needed == Right::administer)
        return PlainReply(403, "that is for the socket alone");
    if (needed == Right::none ||
        IsAllowed(head.authorization,
                  needed == Right::write ? rules.tokens.write : rules.tokens.read))
        return std::nullopt;
    HttpReply refusal = PlainReply(401, "a token is needed");
    refusal.headers.emplace_back("WWW-Authenticate", "Basic realm=\"zel\"");
    return refusal;
}

}  // namespace zel
