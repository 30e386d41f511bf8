#pragma once

#include "agent/parts.h"

// What clients of the store ask of the service.
namespace zel {

// The document in the body: its answer as frames (rowframes.h).
void AnswerRows(AgentParts& parts, HttpRequest& request, const IHttpHandler::Answer& answer);
// For people and other programs: the document in the body or as the parameter "document", at most
// "limit" rows; lines of JSON, of which the last tells the end.
void AnswerQuery(AgentParts& parts, HttpRequest& request, const IHttpHandler::Answer& answer);
// The events that are accepted from "position" on, as they come: lines as followers.h tells them.
// The document of the conditions, which may be missing, comes as for a query.
void FollowEvents(AgentParts& parts, HttpRequest& request, const IHttpHandler::Answer& answer);
// The store's directory and, unless "brief" is asked for, what stands in it (StoreLook).
void TellFolders(AgentParts& parts, HttpRequest& request, const IHttpHandler::Answer& answer);
// What stands behind an event's key in that of a silent enrichment: numbered by the clock, and
// never twice the same.
std::string SilentSuffixOfNow();
// Lines {"key":"...","enrichment":...}, all of which are good or none is taken. The keys are of
// events, or those under which enrichments stand. The answer comes once they are on the disk.
void TakeEnrichments(AgentParts& parts, HttpRequest& request, const IHttpHandler::Answer& answer);
// A link that opens the page once, for who asks for it by the socket.
void MakeWebLink(AgentParts& parts, HttpRequest& request, const IHttpHandler::Answer& answer);
// Counts and lists of events, which a page is made of (eventways.h). The path tells which.
void AnswerEventWay(AgentParts& parts, HttpRequest& request, const IHttpHandler::Answer& answer);
// Deletes the oldest folders until the store fits in "max_size".
void PurgeNow(AgentParts& parts, HttpRequest& request, const IHttpHandler::Answer& answer);

}  // namespace zel
