#pragma once

#include <string>

namespace zel {

// Whoever runs a session: told what people should read, asked whether they still want to wait.
class ISessionListener {
public:
    // One message without a newline, UTF-8. On the thread of the operation that has it to say.
    virtual void Say(const std::string& text) = 0;
    // Whether waits are to end. Asked from any thread.
    virtual bool Interrupted() noexcept = 0;

protected:
    ~ISessionListener() = default;
};

}  // namespace zel
