#pragma once

#include "common/result.h"
#include "zelstore/schema/event.h"

namespace ZEL {

// Rewrites a sub-query's times so that begin_time is the first time wanted and end_time the last.
// Nothing happens without begin_time; receive_time is never touched. 0x80070057 for an operator
// that makes no range; a time that has to be shifted and can't be read gives its failure.
//
// Afterwards both are for comparing as text. A strict limit is moved by a millisecond, the finest
// step of a time's text. On failure one of the two may have been rewritten: the sub-query is then
// not to be run.
HRESULT NormaliseTimeRange(Schema::Event& subQuery);

}  // namespace ZEL
