#include "zel/terminal/inputfile.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "zel/terminal/messages.h"

// A read that waits for a pipe would outlast an interrupt that another thread has heard of. So
// nothing is read before poll has found something, and poll watches the pipe of interrupts too.

namespace zel {

namespace {

// Standard input is used and not closed: it is not this program's.
class Descriptor {
public:
    explicit Descriptor(const std::string& name)
        : isOwn_(name != "-"),
          descriptor_(isOwn_ ? ::open(name.c_str(), O_RDONLY | O_CLOEXEC) : STDIN_FILENO) {}
    ~Descriptor() {
        if (isOwn_ && descriptor_ >= 0)
            ::close(descriptor_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    bool IsOpen() const { return descriptor_ >= 0; }
    // As read(2), but an interrupt ends it, whichever thread heard of it.
    ssize_t Read(char* buffer, std::size_t size) const {
        pollfd waits[] = {{descriptor_, POLLIN, 0}, {InterruptDescriptor(), POLLIN, 0}};
        while (!Interrupted()) {
            if (::poll(waits, 2, -1) < 0 && errno != EINTR)
                return -1;
            if (waits[0].revents != 0 && !Interrupted())
                return ::read(descriptor_, buffer, size);
        }
        errno = EINTR;
        return -1;
    }

private:
    const bool isOwn_;
    const int descriptor_;
};

}  // namespace

bool ReadInputFile(const std::string& name, std::size_t most, std::string* text,
                   std::string* problem) {
    const auto refuse = [&](const std::string& why) {
        *problem = (name == "-" ? "standard input" : name) + ": " + why;
        return false;
    };
    const Descriptor file(name);
    if (!file.IsOpen())
        return refuse(std::string("can't be read: ") + std::strerror(errno));
    text->clear();
    char buffer[1U << 16];
    for (ssize_t got = 0; (got = file.Read(buffer, sizeof(buffer))) != 0;) {
        if (got < 0)
            return refuse(std::string("can't be read: ") + std::strerror(errno));
        text->append(buffer, static_cast<std::size_t>(got));
        if (text->size() > most)
            return refuse("larger than " + std::to_string(most >> 20) + " MiB");
    }
    return true;
}

}  // namespace zel
