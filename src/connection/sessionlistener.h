#pragma once

#include <string>

namespace zel {

// Whoever runs a session: told what people should read, asked whether they still want to wait. A
// program at a terminal prints, a service writes to its log, a test remembers.
//
// Called by any thread, also under locks of the store: it must not call the store or the session.
class ISessionListener {
public:
    // One message, UTF-8, without a newline at its end.
    virtual void Say(const std::string& text) = 0;
    // Whether waits are to end; what is waited for is then left undone, and told so. Asked again
    // and again while something is waited for, so it has to be cheap, and once true it has to stay
    // so.
    virtual bool Interrupted() noexcept = 0;

protected:
    ~ISessionListener() = default;
};

}  // namespace zel
