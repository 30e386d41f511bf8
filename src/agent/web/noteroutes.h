#pragma once

#include "agent/web/webparts.h"

// What people say of events on the page.
namespace zel {

// {"key","kind":"note|verdict|tag","text"}: is stored with the event as a silent enrichment
// {"annotation":{"kind","text","author","time"}}. The answer comes once it is on the disk.
void TakeNote(WebParts& parts, HttpRequest& request, const IHttpHandler::Answer& answer);

}  // namespace zel
