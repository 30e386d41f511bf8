#include "agent/routes.h"

#include <algorithm>
#include <exception>

#include "agent/askroutes.h"
#include "agent/takestream.h"
#include "common/jsontext.h"

// All paths in one table. The name of a row is what metrics call it, so that no path that a peer
// makes up becomes one.

namespace zel {

namespace {

using Answer = IHttpHandler::Answer;

struct Route {
    std::string_view name;
    std::string_view paths;    // "a|b"; "*" in front: how they end
    std::string_view methods;  // "GET|HEAD"
    Right right;
    void (*handle)(AgentParts& parts, HttpRequest& request, const Answer& answer);
};

bool IsOneOf(std::string_view list, std::string_view wanted) {
    for (std::size_t at = 0; at <= list.size();) {
        const std::size_t bar = std::min(list.find('|', at), list.size());
        const std::string_view one = list.substr(at, bar - at);
        if (one == wanted || (one.starts_with('*') && wanted.ends_with(one.substr(1))))
            return true;
        at = bar + 1;
    }
    return false;
}

HttpReply Shipper(int status, std::string body) {
    return {status, "application/json", std::move(body), {{"X-Elastic-Product", "Elasticsearch"}}};
}

void Greet(AgentParts&, HttpRequest& request, const Answer& answer) {
    if (request.head.accept.find("text/html") != std::string::npos)
        return answer(PlainReply(200, "zel: a local store of security events"));
    answer(Shipper(
        200,
        R"({"name":"zel","cluster_name":"zel","cluster_uuid":"zel-local-store",)"
        R"("version":{"number":"8.19.0","build_flavor":"default","build_type":"deb",)"
        R"("build_hash":"0","build_date":"2026-01-01T00:00:00.000Z","build_snapshot":false,)"
        R"("lucene_version":"9.12.0","minimum_wire_compatibility_version":"7.17.0",)"
        R"("minimum_index_compatibility_version":"7.0.0"},"tagline":"You Know, for Search"})"));
}

void TellLicense(AgentParts&, HttpRequest&, const Answer& answer) {
    answer(Shipper(200, R"({"license":{"uid":"zel","type":"basic","status":"active"}})"));
}

// As long as a bulk would be closed without an answer this is as well: shippers ask it to learn
// when to go on, and take any answer for a yes.
void TellHealth(AgentParts& parts, HttpRequest& request, const Answer& answer) {
    HttpReply reply = request.head.path == "/_cat/health"
                          ? PlainReply(200, "zel green")
                          : Shipper(200, R"({"cluster_name":"zel","status":"green"})");
    reply.isCut = !parts.admission.HasRoom();
    answer(std::move(reply));
}

// Asked by clients at their end, which take any other answer for a failure of what they brought.
void TellRefreshed(AgentParts&, HttpRequest&, const Answer& answer) {
    answer(Shipper(200, R"({"_shards":{"total":1,"successful":1,"failed":0}})"));
}

void RefuseSetup(AgentParts&, HttpRequest&, const Answer& answer) {
    answer(Shipper(400, R"({"error":{"type":"illegal_argument_exception","reason":"this store has )"
                        R"(no templates, policies or pipelines: set setup.template.enabled, )"
                        R"(setup.ilm.enabled or manage_template to false","root_cause":[]},)"
                        R"("status":400})"));
}

void TellLife(AgentParts& parts, HttpRequest&, const Answer& answer) {
    constexpr std::uint64_t tooLongMs = 60000;
    const bool lives = parts.feeder.SilentMs() < tooLongMs;
    answer(PlainReply(lives ? 200 : 503, lives ? "ok" : "stalled"));
}

void TellReadiness(AgentParts& parts, HttpRequest&, const Answer& answer) {
    const auto words = Degraded(parts);
    answer(words.empty() ? PlainReply(200, "ok") : PlainReply(503, std::string(words.front())));
}

void TellStatus(AgentParts& parts, HttpRequest&, const Answer& answer) {
    answer({200, "application/json", StatusJson(parts), {}});
}

void TellMetrics(AgentParts& parts, HttpRequest&, const Answer& answer) {
    answer({200, "text/plain; version=0.0.4; charset=utf-8", MetricsText(parts), {}});
}

constexpr Route routes[] = {
    {"events", "/v1/events", "POST|PUT", Right::write, TakeEvents},
    {"bulk", "/_bulk|*/_bulk", "POST|PUT", Right::write, TakeBulk},
    {"logs", "/v1/logs", "POST", Right::write, TakeLogs},
    {"rows", "/v1/rows", "POST", Right::read, AnswerRows},
    {"query", "/v1/query", "GET|POST", Right::read, AnswerQuery},
    {"events_shown", "/v1/words|/v1/histogram|/v1/facets|/v1/list|/v1/event|/v1/around|/v1/tree",
     "GET", Right::read, AnswerEventWay},
    {"follow", "/v1/follow", "GET|POST", Right::read, FollowEvents},
    {"folders", "/v1/folders", "GET", Right::read, TellFolders},
    {"enrichments", "/v1/enrichments", "POST", Right::annotate, TakeEnrichments},
    {"web", "/v1/web/link", "POST", Right::read, MakeWebLink},
    {"purge", "/v1/purge", "POST", Right::administer, PurgeNow},
    {"status", "/v1/status", "GET|HEAD", Right::read, TellStatus},
    {"metrics", "/metrics", "GET|HEAD", Right::read, TellMetrics},
    {"healthz", "/healthz", "GET|HEAD", Right::none, TellLife},
    {"readyz", "/readyz", "GET|HEAD", Right::none, TellReadiness},
    {"root", "/", "GET|HEAD", Right::write, Greet},
    {"license", "/_license", "GET|HEAD", Right::write, TellLicense},
    {"health", "/_cat/health|/_cluster/health", "GET|HEAD", Right::write, TellHealth},
    {"refresh", "/_refresh|*/_refresh", "GET|POST", Right::write, TellRefreshed},
};
constexpr std::string_view otherRoute = "other";

const Route* FindRoute(std::string_view path) {
    for (const Route& route : routes)
        if (IsOneOf(route.paths, path))
            return &route;
    return nullptr;
}

bool IsSetup(const HttpHead& head) {
    return head.method == "PUT" &&
           (head.path.starts_with("/_index_template/") || head.path.starts_with("/_template/") ||
            head.path.starts_with("/_ilm/policy/") || head.path.starts_with("/_ingest/pipeline/"));
}

HttpReply NotHere() {
    return Shipper(
        404, R"({"error":{"type":"resource_not_found_exception","reason":"this store takes )"
             R"(events by _bulk, /v1/events and /v1/logs and answers queries at )"
             R"(/v1/query; it tells /v1/status and /metrics","root_cause":[]},"status":404})");
}

}  // namespace

namespace {

// Of what the right way is asked in. Who has no right is not waited for with a body: it would take
// a connection from those who have.
std::optional<HttpReply> RefuseForm(const Route& route, const HttpHead& head) {
    constexpr std::size_t longestKey = 512;
    if (!IsOneOf(route.methods, head.method)) {
        HttpReply refusal = PlainReply(405, "this takes " + std::string(route.methods));
        std::string allowed(route.methods);
        std::replace(allowed.begin(), allowed.end(), '|', ',');
        refusal.headers.emplace_back("Allow", allowed);
        return refusal;
    }
    if (route.right == Right::none && head.hasBody)
        return PlainReply(413, "this takes no body");
    if (head.idempotencyKey.size() > longestKey)
        return PlainReply(400, "an Idempotency-Key of more than 512 bytes");
    return std::nullopt;
}

}  // namespace

std::optional<HttpReply> Routes::Refuse(const HttpHead& head) {
    const Route* const route = FindRoute(head.path);
    const bool isSetup = IsSetup(head);
    std::optional<HttpReply> refusal =
        RefuseAccess(head, route != nullptr ? route->right : Right::write, *access_.Now());
    if (!refusal && route == nullptr && !isSetup)
        refusal = NotHere();
    if (!refusal && route != nullptr)
        refusal = RefuseForm(*route, head);
    if (refusal)
        parts_.log.CountRequest(route != nullptr ? route->name : otherRoute, refusal->status);
    if (refusal && refusal->status == 401)
        refusal->pause = brake_.Fail();
    if (refusal && refusal->status != 404)
        parts_.log.SaySeldom("a request was refused with " + std::to_string(refusal->status));
    return refusal;
}

namespace {

// Counts a request that is taken in pieces as Routes does those that are whole.
class CountedTaker final : public BodyTaker, public std::enable_shared_from_this<CountedTaker> {
public:
    CountedTaker(AgentParts& parts, std::string_view route, std::shared_ptr<BodyTaker> taker)
        : parts_(parts), route_(route), taker_(std::move(taker)) {
        ++parts_.log.inFlight;
    }
    ~CountedTaker() override { --parts_.log.inFlight; }
    CountedTaker(const CountedTaker&) = delete;
    CountedTaker& operator=(const CountedTaker&) = delete;

    void Take(std::string piece, bool isLast, const Next& next) override {
        const Next counted = [self = shared_from_this(), next](BodyStep step) {
            if (step.reply)
                self->Count(*step.reply);
            next(std::move(step));
        };
        try {
            taker_->Take(std::move(piece), isLast, counted);
        } catch (const std::exception& error) {
            parts_.log.SaySeldom(std::string("a request failed: ") + error.what());
            counted({PlainReply(503, "the request can't be worked on"), false});
        }
    }

    HttpReply Interrupt() override {
        HttpReply reply = taker_->Interrupt();
        Count(reply);
        return reply;
    }

private:
    void Count(const HttpReply& reply) { parts_.log.CountRequest(route_, reply.status); }

    AgentParts& parts_;
    const std::string_view route_;
    const std::shared_ptr<BodyTaker> taker_;
};

}  // namespace

std::shared_ptr<BodyTaker> Routes::TakerOf(const HttpHead& head) {
    const Route* const route = FindRoute(head.path);
    if (!head.isChunked || route == nullptr || route->handle != TakeEvents)
        return nullptr;
    return std::make_shared<CountedTaker>(parts_, route->name, MakeEventTaker(parts_, head));
}

// A request that was cut counts with the code 0.
void Routes::Handle(HttpRequest request, Answer answer) {
    const Route* const route = FindRoute(request.head.path);
    const std::string_view name = route != nullptr ? route->name : otherRoute;
    ++parts_.log.inFlight;
    const Answer counted = [this, name, answer = std::move(answer)](HttpReply reply) {
        --parts_.log.inFlight;
        if (reply.statusOf)
            reply.statusOf = [this, name, of = std::move(reply.statusOf)](const AnswerStream& all) {
                const int status = of(all);
                parts_.log.CountRequest(name, status);
                return status;
            };
        else
            parts_.log.CountRequest(name, reply.isCut ? 0 : reply.status);
        answer(std::move(reply));
    };
    try {
        if (route != nullptr)
            route->handle(parts_, request, counted);
        else
            RefuseSetup(parts_, request, counted);
    } catch (const std::exception& error) {
        parts_.log.SaySeldom(std::string("a request failed: ") + error.what());
        counted(PlainReply(503, "the request can't be worked on"));
    }
}

}  // namespace zel
