#pragma once

#include "agent/web/webparts.h"

// What leaves the page as a file.
namespace zel {

// All events that fit, in a "form" (ndjson, csv, ocsf) and for csv of some "fields", as they are
// found. What could not be read is told by a last line, since a file that lacks it looks whole.
void ExportEvents(WebParts& parts, HttpRequest& request, const IHttpHandler::Answer& answer);

// {"question":{"parameters":[["object","file"],...],"command":"..."},"title":"...",
// "events":[{"key":"...","note":"..."},...]}: one file of HTML without scripts that tells the
// question, what of the store it covers, and the events with what was said of them.
void MakeReport(WebParts& parts, HttpRequest& request, const IHttpHandler::Answer& answer);

}  // namespace zel
