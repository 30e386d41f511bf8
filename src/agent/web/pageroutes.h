#pragma once

#include "agent/web/webparts.h"

// The page's ways that tell of the page and of no events.
namespace zel {

// What the page has to know ahead of its first question.
void TellPage(WebParts& parts, HttpRequest& request, const IHttpHandler::Answer& answer);

}  // namespace zel
