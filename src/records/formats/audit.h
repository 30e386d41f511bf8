#pragma once

#include <memory>

#include "records/formats/formats.h"

namespace zel {

// The lines of Linux audit logs, as auditd writes them and as its dispatcher passes them on. The
// lines of one event are joined, also when others stand between.
bool KnowsAudit(const SourceLine& line);
std::unique_ptr<LineSource> MakeAudit(Mapper& mapper);

}  // namespace zel
