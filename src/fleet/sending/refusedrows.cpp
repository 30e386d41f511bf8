#include "fleet/sending/refusedrows.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "common/hostservices.h"
#include "common/jsontext.h"
#include "common/utctime.h"

namespace zel::fleet {

namespace {

bool WriteAll(int file, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(file, text.data(), text.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return ::fsync(file) == 0;
}

}  // namespace

bool RefusedRows::Add(std::string_view table, std::string_view row, const FleetFailure& failure,
                      std::string* problem) {
    while (row.ends_with('\n'))
        row.remove_suffix(1);
    const std::string line =
        "{\"time\":" + wm::JsonString(wm::FormatUtc(wm::Clock().UtcNow())) +
        ",\"table\":" + wm::JsonString(table) + ",\"code\":" + std::to_string(failure.code) +
        ",\"why\":" + wm::JsonString(failure.text) + ",\"row\":" + std::string(row) + "}\n";
    constexpr int ownerOnly = 0600;
    const int file = ::open(name_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, ownerOnly);
    const off_t before = file >= 0 ? ::lseek(file, 0, SEEK_END) : 0;
    bool isKept = file >= 0 && WriteAll(file, line);
    if (!isKept) {
        *problem = name_ + ": refused rows can't be kept: " + std::strerror(errno);
        if (file >= 0 && ::ftruncate(file, before) != 0)
            *problem += "; its last line may be cut off";
    }
    if (file >= 0)
        ::close(file);
    return isKept;
}

}  // namespace zel::fleet
