#include "agent/web/webroutes.h"

#include <algorithm>
#include <exception>

#include "agent/parameters.h"
#include "agent/web/eventways.h"
#include "agent/web/exportroutes.h"
#include "agent/web/liveroutes.h"
#include "agent/web/noteroutes.h"
#include "agent/web/pageroutes.h"
#include "agent/web/webassets.h"
#include "common/asciicase.h"

// Everybody on the machine reaches the port, and every page that a browser here shows can make it
// ask. So a request has to bring the cookie of a session, which began with a link that somebody
// with the right to ask has made, and the browser must not say that another page asks. Headers keep
// the page itself from running or fetching what is not its own.

namespace zel {

namespace {

using Answer = IHttpHandler::Answer;

struct WebRoute {
    std::string_view name;  // what metrics call it
    std::string_view path;
    std::string_view methods;
    Right right;
    WebHandler handle;
};

constexpr WebRoute routes[] = {
    {"web_page", "/v1/page", "GET", Right::read, TellPage},
    {"web_live", "/v1/live", "GET", Right::read, FollowLive},
    {"web_pause", "/v1/live/pause", "POST", Right::read, PauseLive},
    {"web_export", "/v1/export", "GET", Right::read, ExportEvents},
    {"web_report", "/v1/report", "POST", Right::read, MakeReport},
    {"web_notes", "/v1/notes", "POST", Right::annotate, TakeNote},
    {"web_words", "/v1/words", "GET", Right::read, AnswerPageWay},
    {"web_histogram", "/v1/histogram", "GET", Right::read, AnswerPageWay},
    {"web_facets", "/v1/facets", "GET", Right::read, AnswerPageWay},
    {"web_list", "/v1/list", "GET", Right::read, AnswerPageWay},
    {"web_event", "/v1/event", "GET", Right::read, AnswerPageWay},
    {"web_around", "/v1/around", "GET", Right::read, AnswerPageWay},
    {"web_tree", "/v1/tree", "GET", Right::read, AnswerPageWay},
};
constexpr std::string_view assetRoute = "web_asset";
constexpr std::string_view openRoute = "web_open";
constexpr std::string_view otherRoute = "web_other";

const WebRoute* FindRoute(std::string_view path) {
    const auto* const found =
        std::find_if(std::begin(routes), std::end(routes),
                     [path](const WebRoute& route) { return route.path == path; });
    return found != std::end(routes) ? found : nullptr;
}

const WebAsset* FindAsset(std::string_view path) {
    constexpr std::string_view folder = "/assets/";
    const std::string_view name = path == "/"                ? "page.html"
                                  : path.starts_with(folder) ? path.substr(folder.size())
                                                             : "";
    for (const WebAsset& asset : WebAssets())
        if (asset.name == name)
            return &asset;
    return nullptr;
}

std::string_view NameOf(std::string_view path) {
    if (const WebRoute* const route = FindRoute(path))
        return route->name;
    return path == "/open" ? openRoute : FindAsset(path) != nullptr ? assetRoute : otherRoute;
}

// Which port the browser has come to is not asked: it may be forwarded. That the name is one of
// this machine's is, since any other may have been made to lead here by who owns it.
bool IsOwnName(std::string_view host) {
    const std::size_t colon = host.rfind(':');
    const bool hasPort = colon != host.npos && host.find(']', colon) == host.npos;
    const std::string_view name = host.substr(0, hasPort ? colon : host.npos);
    if (hasPort && host.find_first_not_of("0123456789", colon + 1) != host.npos)
        return false;
    return ZEL::EqualsNoCase(name, "localhost") || name == "127.0.0.1" || name == "[::1]";
}

bool IsOwnOrigin(const HttpHead& head) {
    return head.origin.empty() || head.origin == "http://" + head.host;
}

bool IsOwnSite(const HttpHead& head) {
    return head.fetchSite.empty() || head.fetchSite == "none" || head.fetchSite == "same-origin";
}

// For who follows a link that stands elsewhere, such as in a file or a mail: on a way that began
// there the browser would keep the cookie back. From this page on the way is the page's own.
constexpr std::string_view hop =
    "<!doctype html>\n<html lang=\"en\">\n<meta charset=\"utf-8\">\n"
    "<meta http-equiv=\"refresh\" content=\"0;url=/\">\n<title>zel</title>\n"
    "<p><a href=\"/\">The page</a></p>\n</html>\n";

// Cookies know no ports, so that each server has a name of its own.
std::string CookieName(const HttpHead& head) {
    return "zel_web_" + std::to_string(head.port);
}

std::string_view CookieOf(const HttpHead& head) {
    const std::string name = CookieName(head) + "=";
    std::string_view rest = head.cookie;
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find(';'), rest.size());
        const std::string_view one = rest.substr(0, end);
        if (one.starts_with(name))
            return one.substr(name.size());
        rest.remove_prefix(std::min(end + 1, rest.size()));
        rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    }
    return "";
}

void Protect(HttpReply* reply) {
    const auto add = [reply](const char* name, const char* value) {
        reply->headers.emplace_back(name, value);
    };
    add("Content-Security-Policy",
        "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
        "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'");
    add("Referrer-Policy", "no-referrer");
    add("Cross-Origin-Opener-Policy", "same-origin");
    add("Cross-Origin-Resource-Policy", "same-origin");
    const auto isCaching = [](const auto& header) { return header.first == "Cache-Control"; };
    if (std::none_of(reply->headers.begin(), reply->headers.end(), isCaching))
        add("Cache-Control", "no-store");
}

// Kept by the browser, which asks each time whether it has changed: a newer program has newer ones.
HttpReply AssetReply(const WebAsset& asset, const HttpHead& head) {
    HttpReply reply{200, std::string(asset.type), "", {}};
    reply.headers.emplace_back("ETag", asset.tag);
    reply.headers.emplace_back("Cache-Control", "no-cache");
    if (head.ifNoneMatch == asset.tag)
        reply.status = 304;
    else
        reply.body = asset.bytes;
    return reply;
}

bool Takes(std::string_view methods, std::string_view method) {
    return ("|" + std::string(methods) + "|").find("|" + std::string(method) + "|") !=
           std::string::npos;
}

}  // namespace

std::string WebRoutes::MakeLink(const Peer& peer, std::uint16_t port) {
    const std::string token = sessions_.MakeToken(peer);
    return token.empty() ? token
                         : "http://127.0.0.1:" + std::to_string(port) + "/open?token=" + token;
}

HttpReply WebRoutes::Open(const HttpHead& head) {
    if (head.method != "GET")
        return PlainReply(405, "this takes GET");
    const auto cookie = sessions_.Open(Parameter(head.query, "token"));
    if (!cookie) {
        HttpReply refusal =
            PlainReply(403, "This link was used already or is too old: `zel web` makes another.");
        refusal.pause = brake_.Fail();
        return refusal;
    }
    HttpReply reply = PlainReply(303, "the page is at /");
    if (IsOwnSite(head))
        reply.headers.emplace_back("Location", "/");
    else
        reply = {200, "text/html; charset=utf-8", std::string(hop), {}};
    reply.headers.emplace_back(
        "Set-Cookie", CookieName(head) + "=" + *cookie + "; HttpOnly; SameSite=Strict; Path=/");
    return reply;
}

std::optional<HttpReply> WebRoutes::RefuseUncounted(const HttpHead& head) {
    if (!IsOwnName(head.host))
        return PlainReply(421, "this is not " + (head.host.empty() ? "that host" : head.host));
    if (!IsOwnOrigin(head) || (!IsOwnSite(head) && head.path != "/open"))
        return PlainReply(403, "other pages have no access");
    if (head.path == "/open")
        return Open(head);
    const std::string_view cookie = CookieOf(head);
    const auto peer = sessions_.Find(cookie);
    if (!peer) {
        HttpReply refusal = PlainReply(
            401, "The page opens by the link that `zel web` prints, once for each browser.");
        if (!cookie.empty())
            refusal.pause = brake_.Fail();
        return refusal;
    }
    const WebRoute* const route = FindRoute(head.path);
    const std::string_view methods = route != nullptr ? route->methods : "GET|HEAD";
    if (route == nullptr && FindAsset(head.path) == nullptr)
        return PlainReply(404, "the page has no " + head.path);
    if (!Takes(methods, head.method))
        return PlainReply(405, "this takes " + std::string(methods));
    if (!parts_.host.Has(*peer, route != nullptr ? route->right : Right::read))
        return PlainReply(403, "you have no right to do this");
    return std::nullopt;
}

std::optional<HttpReply> WebRoutes::Refuse(const HttpHead& head) {
    std::optional<HttpReply> refusal = RefuseUncounted(head);
    if (!refusal)
        return std::nullopt;
    parts_.host.CountRequest(NameOf(head.path), refusal->status);
    Protect(&*refusal);
    return refusal;
}

void WebRoutes::Handle(HttpRequest request, Answer answer) {
    const WebRoute* const route = FindRoute(request.head.path);
    const Answer finish = [this, name = NameOf(request.head.path),
                           answer = std::move(answer)](HttpReply reply) {
        if (reply.statusOf)
            reply.statusOf = [this, name, of = std::move(reply.statusOf)](const AnswerStream& all) {
                const int status = of(all);
                parts_.host.CountRequest(name, status);
                return status;
            };
        else
            parts_.host.CountRequest(name, reply.status);
        Protect(&reply);
        answer(std::move(reply));
    };
    if (route == nullptr)
        return finish(AssetReply(*FindAsset(request.head.path), request.head));
    // The session may have ended since it was looked at.
    const auto peer = sessions_.Find(CookieOf(request.head));
    if (!peer)
        return finish(PlainReply(401, "the session has ended"));
    request.head.peer = *peer;
    try {
        route->handle(parts_, request, finish);
    } catch (const std::exception& error) {
        parts_.host.Note(std::string("a request failed: ") + error.what());
        finish(PlainReply(503, "the request can't be worked on"));
    }
}

}  // namespace zel
