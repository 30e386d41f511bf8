#pragma once

#include <utility>

#include "../platform.h"
#include "widepath.h"

namespace wm::platform {

// Files share all that they can, so that a reader keeps nobody from removing what it reads.
constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
// What stands at the path itself; with the second, folders too.
constexpr DWORD openItself = FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT;
constexpr DWORD openAnyItself = openItself | FILE_FLAG_BACKUP_SEMANTICS;

// An open file or folder, closed with the object. When it could not be opened the system's last
// error tells why.
class OpenFile {
public:
    OpenFile(const std::wstring& path, DWORD access, DWORD share = shareAll,
             DWORD creation = OPEN_EXISTING, DWORD flags = openItself,
             SECURITY_ATTRIBUTES* security = nullptr) noexcept
        : handle_(::CreateFileW(path.c_str(), access, share, security, creation, flags, nullptr)) {}
    ~OpenFile() { Close(); }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    bool IsOpen() const noexcept { return handle_ != INVALID_HANDLE_VALUE; }
    ::HANDLE Handle() const noexcept { return handle_; }
    bool Tell(BY_HANDLE_FILE_INFORMATION* info) const noexcept {
        return ::GetFileInformationByHandle(handle_, info) != 0;
    }
    bool Close() noexcept {
        return !IsOpen() || ::CloseHandle(std::exchange(handle_, INVALID_HANDLE_VALUE)) != 0;
    }

private:
    ::HANDLE handle_;
};

}  // namespace wm::platform
