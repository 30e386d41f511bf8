#pragma once

#include <memory>

#include "records/formats/formats.h"

namespace zel {

// Events of Windows and of Sysmon as JSON, in the shapes that collectors give them; also such as
// hold the event's XML in one of their members.
bool KnowsWindowsJson(const SourceLine& line);
std::unique_ptr<LineSource> MakeWindowsJson(Mapper& mapper);

}  // namespace zel
