#pragma once

#include <sys/types.h>

namespace zel {

// While it runs, what is printed to standard output goes to the program that PAGER names, or to
// less, so that long answers can be read on a terminal. For one thread; one at a time.
class Pager {
public:
    Pager() = default;
    ~Pager() { Finish(); }
    Pager(const Pager&) = delete;
    Pager& operator=(const Pager&) = delete;

    // To be called where standard output is a terminal, before other threads are begun. Without a
    // pager (an empty PAGER, "cat", or none that can be started) all stays as it is.
    void Start();
    // Ends its input, waits until the person has left it, and gives standard output back. What was
    // printed must have been flushed. False when there is no such program, so that nobody has seen
    // anything. May be called again.
    bool Finish();

private:
    pid_t process_ = 0;
    int terminal_ = -1;  // standard output as it was
};

}  // namespace zel
