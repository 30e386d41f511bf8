#pragma once

#include <string>

#include "common/countedptr.h"
#include "connection/sessionlistener.h"
#include "zelstore/ieventstore.h"

namespace zel {

// The store of an agent, as a client may use it: questions, the table of what failed for them,
// enrichments, purges. All else gives hr::notImplemented. Keys are made by `keys`, a store of this
// process that need not be started; all others outlive the object.
//
// Query calls back on the calling thread, in the same order and with the same texts as a store of
// this process does. A set stop event, looked at every 20 ms, or a callback that refuses ends the
// whole query with hr::aborted: the connection is closed, and the agent's walk ends. What can't be
// had from the agent is told to the listener in words, and given as a result of agentResult, or
// hr::accessDenied. Rows that could not be tested and reads that met damage are reported as the
// store reports them.
//
// Enrichments are sent together, by Stop at the latest; those that could not be are reported as
// lost.
ZEL::CountedPtr<ZEL::IEventStore7> MakeRemoteStore(const std::string& socket,
                                                   ISessionListener& listener,
                                                   ZEL::CountedPtr<ZEL::IEventStore7> keys);

}  // namespace zel
