#pragma once

#include <string_view>

#include "records/mapping.h"
#include "records/recordsource.h"
#include "records/sourcefields.h"

namespace zel {

// Where one collector puts the parts of a Windows event. Full names of fields, "a|b" for
// alternatives.
struct WindowsShape {
    std::string_view event;
    std::string_view channel;
    std::string_view computer;
    std::string_view recordNumber;
    std::string_view time;
    std::string_view data;  // in front of the names of the event's own data; may be empty
    // Whether events without such data are events with all of their data outside of it.
    bool isDataOptional;
};

// Null for what is no Windows event.
const WindowsShape* ShapeOf(SourceFields& fields);
// Whether there is a rule for the event. Sets the fields' scope.
bool HasWindowsRule(const WindowsShape& shape, SourceFields& fields);
// Makes the record. `format` as in EventHead.
void MapWindowsEvent(const WindowsShape& shape, std::string_view format, SourceFields& fields,
                     Mapper& mapper, SourceItem* item);
// The same for an event of which only a part could be read: it is passed over.
void PassWindowsEvent(const WindowsShape& shape, std::string_view format, std::string_view why,
                      SourceFields& fields, Mapper& mapper, SourceItem* item);

}  // namespace zel
