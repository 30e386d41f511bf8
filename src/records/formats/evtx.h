#pragma once

#include <memory>
#include <string_view>

#include "records/formats/formats.h"

namespace zel {

// Windows event log files (.evtx). Damaged parts are told as refused events, and what is around
// them is read; with MappingOptions::recovers each chunk is also searched for records that its list
// does not have.
bool KnowsEvtx(std::string_view head);
std::unique_ptr<RecordSource> MakeEvtx(ByteStream& bytes, Mapper& mapper);

}  // namespace zel
