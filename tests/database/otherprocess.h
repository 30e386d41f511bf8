#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "zelstore/database/leveldbinstanceproxy.h"

namespace ZEL::test {

// A process that has a database open until it is told to end.
class OtherProcess {
public:
    explicit OtherProcess(const std::wstring& folder) {
        int ends[2];
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        child_ = ::fork();
        if (child_ == 0) {
            ::close(ends[0]);
            LevelDbInstanceProxy proxy(folder);
            char byte = Succeeded(proxy.Hold(IfMissing::create)) ? 'y' : 'n';
            if (::write(ends[1], &byte, 1) == 1 && ::read(ends[1], &byte, 1) == 0)
                proxy.Release();
            ::_exit(0);
        }
        ::close(ends[1]);
        end_ = ends[0];
        char result = 'n';
        EXPECT_EQ(::read(end_, &result, 1), 1);
        EXPECT_EQ(result, 'y');
    }
    ~OtherProcess() {
        ::close(end_);
        ::waitpid(child_, nullptr, 0);
    }
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;

private:
    pid_t child_ = -1;
    int end_ = -1;
};

}  // namespace ZEL::test
