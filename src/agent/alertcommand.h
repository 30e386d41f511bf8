#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zel {

// A program that is given one line on its standard input. No shell is asked; what it prints goes
// nowhere, what it says goes where the service's own messages go. For one thread.
class AlertCommand {
public:
    // Begins it. `command`: a path and arguments.
    AlertCommand(const std::vector<std::string>& command, std::string_view line);
    // Ends it with all that it has begun, if it has not ended.
    ~AlertCommand();
    AlertCommand(AlertCommand&& other) noexcept;
    AlertCommand(const AlertCommand&) = delete;
    AlertCommand& operator=(const AlertCommand&) = delete;

    // Waits up to that long. True also when it could not be begun.
    bool HasEnded(std::uint64_t milliseconds);
    // Ends it, if it runs still. False, with words, when it failed.
    bool Finish(std::string* problem);

private:
    pid_t process_ = 0;  // 0: none, or it was waited for
    int status_ = 0;
    int beginError_ = 0;
    bool isEnded_ = false;  // by this
};

}  // namespace zel
