#pragma once

#include <string_view>

#include "agent/http.h"
#include "agent/web/countcache.h"
#include "agent/web/countgaps.h"
#include "agent/web/webparts.h"

namespace zel {

// What a page that shows the store asks beside rows: counts, lists, single events. Any thread.
class EventWays {
public:
    // All outlive this.
    EventWays(Questions& questions, const WebTools& tools, IStoreChanges& changes,
              ExplainRules explain = nullptr)
        : questions_(questions),
          words_(tools.words),
          explain_(std::move(explain)),
          context_{tools.ask, changes, cache_, seen_, explain_} {}

    // The ways are
    //
    //   /v1/words  /v1/histogram  /v1/facets  /v1/list  /v1/event  /v1/around  /v1/tree
    //
    // and docs/service.md tells their parameters. The answer, or why there is none.
    HttpReply Answer(std::string_view path, Parameters parameters);
    const CountContext& Context() const noexcept { return context_; }

private:
    HttpReply Words(Parameters parameters);

    Questions& questions_;
    const ReadWords& words_;
    CountCache cache_;
    ShownValues seen_;
    const ExplainRules explain_;
    const CountContext context_;
};

// The page's ways that are one of these.
void AnswerPageWay(WebParts& parts, HttpRequest& request, const IHttpHandler::Answer& answer);

}  // namespace zel
