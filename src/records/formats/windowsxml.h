#pragma once

#include <memory>
#include <string_view>

#include "records/formats/formats.h"

namespace zel {

// Windows events as XML.
enum class XmlRead {
    whole,
    cutOff,  // what stands ahead of the fault was read
    none,    // no XML of an event
};
// Adds the facts of an <Event> element: System.EventID, System.Provider.Name, and the data under
// their names: EventData.Image. Texts are kept by `fields`.
XmlRead ReadEventXml(std::string_view xml, SourceFields* fields);
// The same of the <Data Name=".."> elements in `xml`, whatever stands around them.
XmlRead ReadDataXml(std::string_view xml, SourceFields* fields);

// Whether the text begins as an event's XML does.
bool IsEventXml(std::string_view text);

// Lines that hold <Event> elements: one or several a line, or one over several lines; what stands
// around them is passed over.
bool KnowsWindowsXml(const SourceLine& line);
std::unique_ptr<LineSource> MakeWindowsXml(Mapper& mapper);

}  // namespace zel
