#pragma once

#include <string_view>

namespace ZEL::test {

// A disk that hangs or fails. Linked into a test program, its source takes the place of read,
// write and fdatasync for the whole process, the libraries included; files whose names end in the
// given suffix are then held up. One rule at a time; the end of the object ends it.
class SlowDisk {
public:
    SlowDisk() = default;
    ~SlowDisk() { Unblock(); }
    SlowDisk(const SlowDisk&) = delete;
    SlowDisk& operator=(const SlowDisk&) = delete;

    // Writers of such files hang until Unblock.
    void Block(std::string_view suffix);
    // Waits until one does.
    void AwaitBlocked();
    // Writes of such files fail with `error` (an errno value), so many times; or reads do.
    void Fail(std::string_view suffix, int error, int times = 1 << 30);
    void FailReads(std::string_view suffix, int error);
    // How often that has happened since.
    int Failures() const;
    void Unblock();
};

}  // namespace ZEL::test
