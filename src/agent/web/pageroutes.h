#pragma once

#include "agent/web/webparts.h"

// The page's ways that tell of the page and of no events.
namespace zel {

// What the page has to know ahead of its first question. With "range=1" also the times of the first
// and the last event, which cost a walk over all keys.
void TellPage(WebParts& parts, HttpRequest& request, const IHttpHandler::Answer& answer);

}  // namespace zel
