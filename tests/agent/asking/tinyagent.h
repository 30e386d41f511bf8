#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "agent/asking/questions.h"

namespace zel::test {

// A Unix socket at which questions are answered, a thread for each connection: as much of a server
// as a test of both ends of an answer needs. With `canned` set each request gets these bytes.
class TinyAgent {
public:
    TinyAgent(const std::string& folder, Questions* questions)
        : path(folder + "/agent.sock"), questions_(questions) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        listener_ = ::socket(AF_UNIX, SOCK_STREAM, 0);
        EXPECT_EQ(::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        EXPECT_EQ(::listen(listener_, 16), 0);
        accepter_ = std::thread([this] { Accept(); });
    }
    ~TinyAgent() {
        ::shutdown(listener_, SHUT_RDWR);
        accepter_.join();
        ::close(listener_);
        for (std::thread& thread : threads_)
            thread.join();
    }

    const std::string path;
    std::string canned;

private:
    void Accept() {
        for (int peer = 0; (peer = ::accept(listener_, nullptr, nullptr)) >= 0;)
            threads_.emplace_back([this, peer] {
                Serve(peer);
                ::close(peer);
            });
    }
    static std::string Request(int peer) {
        std::string request;
        std::size_t body = request.npos, length = 0;
        char bytes[4096];
        while (body == request.npos || request.size() < body + length) {
            const ssize_t got = ::recv(peer, bytes, sizeof(bytes), 0);
            if (got <= 0)
                return "";
            request.append(bytes, static_cast<std::size_t>(got));
            const std::size_t end = request.find("\r\n\r\n");
            if (end == request.npos)
                continue;
            body = end + 4;
            length = std::stoul(request.substr(request.find("Content-Length: ") + 16));
        }
        return request.substr(body);
    }
    static bool Send(int peer, const std::string& bytes) {
        return ::send(peer, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(bytes.size());
    }
    // What the client sends no more is the sign that it has gone, which a real server waits for.
    void Serve(int peer) {
        const std::string document = Request(peer);
        if (!canned.empty()) {
            Send(peer, canned);
            return;
        }
        const auto stream = questions_->Ask({document, AnswerForm::frames, -1});
        std::thread watch([&] {
            char byte = 0;
            if (::recv(peer, &byte, 1, 0) <= 0)
                stream->Cancel();
        });
        bool isThere = Send(peer, "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
        std::string bytes;
        for (bool goesOn = true; isThere && goesOn;) {
            wm::EventObject ready;
            EXPECT_TRUE(ready.Create(wm::EventReset::manual));
            stream->WhenReady([&] { ready.Set(); });
            const ZEL::HANDLE handles[] = {ready.Handle()};
            while (wm::WaitForAny(1, handles, 10) != 0 && !stream->IsCancelled()) {
            }
            goesOn = stream->Take(&bytes);
            char size[24];
            std::snprintf(size, sizeof(size), "%zx\r\n", bytes.size());
            if (goesOn && !bytes.empty())
                isThere = Send(peer, size + bytes + "\r\n");
        }
        if (isThere && !stream->IsCancelled())
            Send(peer, "0\r\n\r\n");
        ::shutdown(peer, SHUT_RDWR);
        watch.join();
        stream->Cancel();
    }

    Questions* const questions_;
    int listener_ = -1;
    std::thread accepter_;
    std::vector<std::thread> threads_;  // of the accepter, then of the destructor
};

}  // namespace zel::test
