#include "connection/agentrequest.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <utility>

#include "common/asciicase.h"
#include "connection/storefolders.h"

// As much of HTTP/1.1 as one request over a Unix socket needs: the connection is closed behind it,
// and the answer's body has a length, comes in chunks, or goes to the end of the connection. All
// that is read has a limit, so that whoever listens there can neither hold the program, which looks
// every 20 ms whether it is to go on, nor take its memory.

namespace zel {

namespace {

using ZEL::HRESULT;
namespace hr = ZEL::hr;

constexpr int patienceMs = 20;
constexpr std::size_t longestHead = 16U << 10;
constexpr std::size_t longestLine = 1U << 10;  // of a chunk's head
constexpr std::size_t longestRefusal = 4U << 10;
constexpr std::size_t readAtOnce = 256U << 10;

struct NamedAgent {
    std::string socket;
    bool (*isOver)() noexcept = nullptr;
};
NamedAgent& Named() {
    static NamedAgent named;
    return named;
}

// The first line of what a refusal says, fit for a terminal.
std::string FirstLine(const std::string& text) {
    return Printable(text.substr(0, text.find_first_of("\r\n")));
}

}  // namespace

void UseAgent(const std::string& socket, bool (*isOver)() noexcept) {
    Named() = {socket, isOver};
}

const std::string& AgentSocket() noexcept {
    return Named().socket;
}

bool IsSocket(const std::string& path) noexcept {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISSOCK(info.st_mode);
}

void AgentRequest::Close() noexcept {
    if (const int descriptor = std::exchange(descriptor_, -1); descriptor >= 0)
        ::close(descriptor);
}

HRESULT AgentRequest::Lost(const std::string& why) {
    problem_ = "the agent at " + socket_ + " " + why;
    return agentResult::lost;
}

HRESULT AgentRequest::Await(short events) {
    pollfd wanted{descriptor_, events, 0};
    while (!isOver_()) {
        const int ready = ::poll(&wanted, 1, patienceMs);
        if (ready > 0)
            return hr::ok;
        if (ready < 0 && errno != EINTR)
            return Lost(std::string("can't be waited for: ") + std::strerror(errno));
    }
    problem_ = "interrupted";
    return hr::aborted;
}

// A full queue of connections shows as "try again", for which there is no waiting but by time.
HRESULT AgentRequest::Connect() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (socket_.size() >= sizeof(address.sun_path))
        return Lost("can't be reached: the name of its socket is too long");
    std::memcpy(address.sun_path, socket_.data(), socket_.size());
    descriptor_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (descriptor_ < 0)
        return Lost(std::string("can't be reached: ") + std::strerror(errno));
    constexpr int mostTries = 250;
    for (int tries = 0;; ++tries) {
        if (::connect(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) ==
            0)
            return hr::ok;
        if (errno == EACCES || errno == EPERM) {
            problem_ = "the agent's socket " + socket_ +
                       " may not be used by this user: " + std::strerror(errno);
            return hr::accessDenied;
        }
        if ((errno != EAGAIN && errno != EINTR) || tries == mostTries)
            return Lost(std::string("does not answer: ") + std::strerror(errno));
        if (isOver_())
            return hr::aborted;
        ::poll(nullptr, 0, patienceMs);
    }
}

// Who refuses may answer before all was sent, and close; then the answer tells why.
HRESULT AgentRequest::SendAll(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(sent));
            continue;
        }
        if (errno == EPIPE || errno == ECONNRESET)
            return hr::ok;
        if (errno != EAGAIN && errno != EINTR)
            return Lost(std::string("takes no request: ") + std::strerror(errno));
        if (const HRESULT result = Await(POLLOUT); Failed(result))
            return result;
    }
    return hr::ok;
}

// At least a byte more in the buffer, or nothing at the end of the connection.
HRESULT AgentRequest::ReadSome() {
    const std::size_t before = buffer_.size();
    for (;;) {
        if (const HRESULT result = Await(POLLIN); Failed(result))
            return result;
        buffer_.resize(before + readAtOnce);
        const ssize_t got = ::recv(descriptor_, buffer_.data() + before, readAtOnce, 0);
        buffer_.resize(before + (got > 0 ? static_cast<std::size_t>(got) : 0));
        if (got >= 0)
            return hr::ok;
        if (errno == ECONNRESET)
            return Lost("has closed the connection");
        if (errno != EAGAIN && errno != EINTR)
            return Lost(std::string("can't be read: ") + std::strerror(errno));
    }
}

HRESULT AgentRequest::ReadLine(std::size_t most, std::string* line) {
    for (;;) {
        const std::size_t end = buffer_.find('\n');
        if (end != buffer_.npos && end <= most) {
            line->assign(buffer_, 0, end);
            buffer_.erase(0, end + 1);
            if (line->ends_with('\r'))
                line->pop_back();
            return hr::ok;
        }
        if (buffer_.size() > most)
            return Lost("does not answer as an agent does");
        const std::size_t before = buffer_.size();
        if (const HRESULT result = ReadSome(); Failed(result))
            return result;
        if (buffer_.size() == before)
            return Lost("has closed the connection");
    }
}

bool AgentRequest::TakeHeader(std::string_view line) {
    const std::size_t colon = line.find(':');
    if (colon == line.npos)
        return false;
    const std::string_view name = line.substr(0, colon);
    std::string_view value = line.substr(colon + 1);
    value.remove_prefix(std::min(value.find_first_not_of(' '), value.size()));
    if (ZEL::EqualsNoCase(name, "transfer-encoding")) {
        isChunked_ = ZEL::EqualsNoCase(value, "chunked");
        return isChunked_;
    }
    if (!ZEL::EqualsNoCase(name, "content-length"))
        return true;
    hasLength_ = true;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), left_);
    return error == std::errc() && end == value.data() + value.size();
}

HRESULT AgentRequest::ReadHead() {
    std::string line;
    HRESULT result = ReadLine(longestHead, &line);
    if (Failed(result))
        return result;
    int status = 0;
    constexpr std::string_view version = "HTTP/1.1 ";
    if (line.starts_with(version))
        std::from_chars(line.data() + version.size(), line.data() + line.size(), status);
    for (std::size_t length = line.size(); status != 0; length += line.size() + 1) {
        result = ReadLine(longestHead, &line);
        if (Failed(result))
            return result;
        if (line.empty())
            return status == 200 ? hr::ok : Refusal(status);
        if (!TakeHeader(line) || length > longestHead)
            break;
    }
    return Lost("does not answer as an agent does");
}

// What the words are is read as far as it comes.
HRESULT AgentRequest::Refusal(int status) {
    std::string words;
    if (const HRESULT result = ReadAll(longestRefusal, &words); result == hr::aborted)
        return result;
    problem_ = "the agent refuses: " + FirstLine(words.empty() ? std::to_string(status) : words);
    switch (status) {
        case 400:
        case 413:
            return hr::invalidArgument;
        case 401:
        case 403:
            return hr::accessDenied;
        case 404:
        case 405:
            return hr::notFound;
        case 503:
            return agentResult::busy;
        default:
            return hr::fail;
    }
}

HRESULT AgentRequest::Send(std::string_view method, std::string_view target,
                           std::string_view body) {
    std::string request(method);
    request.append(" ").append(target).append(" HTTP/1.1\r\nHost: localhost\r\n");
    request.append("Connection: close\r\nContent-Length: " + std::to_string(body.size()));
    request.append("\r\n\r\n");
    HRESULT result = Connect();
    if (Succeeded(result))
        result = SendAll(request);
    if (Succeeded(result))
        result = SendAll(body);
    return Succeeded(result) ? ReadHead() : result;
}

// A chunk's end of line comes with the head of the next one.
HRESULT AgentRequest::BeginChunk() {
    std::string line;
    if (!std::exchange(isFirstChunk_, false)) {
        const HRESULT result = ReadLine(longestLine, &line);
        if (Failed(result))
            return result;
        if (!line.empty())
            return Lost("has sent a chunk that is too long");
    }
    if (const HRESULT result = ReadLine(longestLine, &line); Failed(result))
        return result;
    const std::string_view size = std::string_view(line).substr(0, line.find(';'));
    const auto [end, error] = std::from_chars(size.data(), size.data() + size.size(), left_, 16);
    if (error != std::errc() || end != size.data() + size.size())
        return Lost("has sent what is no chunk");
    hasEnded_ = left_ == 0;
    return hr::ok;
}

HRESULT AgentRequest::Read(std::string* out) {
    if (isChunked_ && !hasEnded_ && left_ == 0)
        if (const HRESULT result = BeginChunk(); Failed(result))
            return result;
    const bool isBounded = isChunked_ || hasLength_;
    if (hasEnded_ || (isBounded && left_ == 0))
        return hr::ok;
    if (isOver_())
        return hr::aborted;
    if (buffer_.empty()) {
        if (const HRESULT result = ReadSome(); Failed(result))
            return result;
        if (buffer_.empty() && isBounded)
            return Lost("has closed the connection");
    }
    const std::size_t size = isBounded ? std::min(left_, buffer_.size()) : buffer_.size();
    out->append(buffer_, 0, size);
    buffer_.erase(0, size);
    left_ -= isBounded ? size : 0;
    return hr::ok;
}

HRESULT AgentRequest::ReadAll(std::size_t most, std::string* out) {
    for (;;) {
        const std::size_t before = out->size();
        if (const HRESULT result = Read(out); Failed(result))
            return result;
        if (out->size() == before)
            return hr::ok;
        if (out->size() > most)
            return Lost("has sent too much");
    }
}

HRESULT CallAgent(std::string_view method, std::string_view target, std::string_view body,
                  std::string* answer, std::string* problem) {
    constexpr std::size_t longestAnswer = 64U << 20;
    const auto isOver = Named().isOver;
    AgentRequest request(AgentSocket(), [isOver] { return isOver != nullptr && isOver(); });
    HRESULT result = request.Send(method, target, body);
    if (Succeeded(result))
        result = request.ReadAll(longestAnswer, answer);
    *problem = request.Problem();
    return result;
}

}  // namespace zel
