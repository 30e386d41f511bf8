#pragma once

#include <string_view>

#include "common/place.h"
#include "common/result.h"
#include "common/tracemessages.h"
#include "common/wmapi.h"

namespace wm {

// One message, as a sink gets it.
struct TraceMessage {
    TraceId id;
    std::string_view argument;  // UTF-8 where the source allowed it; may be empty
    ZEL::HRESULT code;          // hr::ok when none belongs to the message
    Place place;
};

// Takes trace messages. Called on any thread, possibly under locks of the component: it must not
// call back into the component.
class ITraceSink {
public:
    virtual ~ITraceSink() = default;
    // Asked before each message.
    virtual bool Enabled(TraceLevel level) const noexcept = 0;
    // `message` is valid during the call.
    virtual void OnTrace(const TraceMessage& message) noexcept = 0;
};

// Without a sink a message costs one atomic load.
WMLIB_API void Trace(const TraceId& id, ZEL::HRESULT code = ZEL::hr::ok,
                     std::string_view argument = {}, Place place = Place::Current()) noexcept;

// Traces a result that is a failure, and gives it back.
inline ZEL::HRESULT Traced(ZEL::HRESULT result, const TraceId& id, std::string_view argument = {},
                           Place place = Place::Current()) noexcept {
    if (Failed(result))
        Trace(id, result, argument, place);
    return result;
}

}  // namespace wm
