#pragma once

#include "agent/web/webparts.h"

// New events on the page.
namespace zel {

// The events that fit, as they are accepted: a stream of server-sent events, of which "hello" tells
// the name that it has for who pauses it, "row" and "gap" what comes, and each id is a position.
void FollowLive(WebParts& parts, HttpRequest& request, const IHttpHandler::Answer& answer);
// "id" and "paused" (1 or 0). Where it is paused the question waits in the store, and what comes
// meanwhile comes when it goes on.
void PauseLive(WebParts& parts, HttpRequest& request, const IHttpHandler::Answer& answer);

}  // namespace zel
