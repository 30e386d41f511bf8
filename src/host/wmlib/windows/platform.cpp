#include "../platform.h"

#include <cerrno>
#include <type_traits>

#include "common/textbridge.h"
#include "common/trace.h"
#include "widepath.h"

namespace wm::platform {

namespace {

// What the standard library gives is the handle itself, or stands for one.
template <typename Native>
::HANDLE HandleOf(Native thread) {
    if constexpr (std::is_pointer_v<Native>)
        return thread;
    else
        return static_cast<::HANDLE>(pthread_gethandle(thread));
}

// Older systems have no names of threads.
using SetDescription = long(WINAPI*)(::HANDLE, const wchar_t*);
SetDescription FindSetDescription() noexcept {
    const HMODULE library = ::GetModuleHandleW(L"kernel32.dll");
    return reinterpret_cast<SetDescription>(
        reinterpret_cast<void*>(::GetProcAddress(library, "SetThreadDescription")));
}

}  // namespace

void NameThread(std::thread::native_handle_type thread, const char* name) noexcept {
    static const SetDescription set = FindSetDescription();
    if (set == nullptr)
        return;
    try {
        std::wstring wide;
        if (ToWide(name, wide))
            set(HandleOf(thread), wide.c_str());
    } catch (...) {
        return;  // it goes without a name
    }
}

std::uint64_t UptimeMs() noexcept {
    return ::GetTickCount64();
}

std::wstring LibraryFolder() {
    static const char anchor = 0;
    constexpr DWORD mostCharacters = 32768;
    constexpr DWORD flags =
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
    HMODULE library = nullptr;
    std::wstring file(mostCharacters, L'\0');
    if (::GetModuleHandleExW(flags, reinterpret_cast<const wchar_t*>(&anchor), &library) == 0)
        return {};
    file.resize(::GetModuleFileNameW(library, file.data(), mostCharacters));
    const std::size_t separator = file.rfind(L'\\');
    return separator == std::wstring::npos ? std::wstring() : file.substr(0, separator);
}

bool EnvironmentVariable(const std::string& name, std::wstring& value) {
    std::wstring wide;
    if (!ToWide(name, wide))
        return false;
    const DWORD size = ::GetEnvironmentVariableW(wide.c_str(), nullptr, 0);
    value.resize(size);
    value.resize(size != 0 ? ::GetEnvironmentVariableW(wide.c_str(), value.data(), size) : 0);
    return value.size() < size;  // another thread may have made it longer
}

std::wstring_view Separators() noexcept {
    return L"\\/";
}

const wchar_t* ComponentExtension() noexcept {
    return L".dll";
}

// What the component needs is looked for beside it, beside the program and in the system's folder,
// not where the process happens to stand nor along its search path. A damaged file gives an error
// and not a message that somebody has to click away.
LoadedLibrary LoadComponent(const std::wstring& path) {
    DWORD former = 0;
    ::SetThreadErrorMode(SEM_FAILCRITICALERRORS, &former);
    const HMODULE library =
        ::LoadLibraryExW(FullPath(path).c_str(), nullptr,
                         LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_DEFAULT_DIRS);
    const DWORD error = ::GetLastError();
    ::SetThreadErrorMode(former, nullptr);
    if (library == nullptr) {
        Trace(message::componentNotLoaded, ZEL::FromWin32(error), ToUtf8Lossy(path));
        return {};
    }
    return {true, reinterpret_cast<ZEL::GetFactoryFunction>(
                      reinterpret_cast<void*>(::GetProcAddress(library, "GetFactory")))};
}

namespace {

// The C library's numbers mean the same kinds as on other systems.
std::uint32_t CodeOfErrno(int error) noexcept {
    switch (error) {
        case ENOENT:
        case ENOTDIR:
            return ERROR_PATH_NOT_FOUND;
        case EACCES:
        case EPERM:
            return ERROR_ACCESS_DENIED;
        case EINVAL:
            return ERROR_INVALID_PARAMETER;
        case ENOMEM:
            return ERROR_OUTOFMEMORY;
        case EAGAIN:
            return ERROR_NO_SYSTEM_RESOURCES;
        default:
            return ERROR_IO_DEVICE;
    }
}

}  // namespace

// The system has several codes for what is one kind to callers on all systems.
std::uint32_t Win32Code(const std::error_code& error) noexcept {
    if (error.category() != std::system_category())
        return CodeOfErrno(error.value());
    const auto code = static_cast<std::uint32_t>(error.value());
    switch (code) {
        case ERROR_FILE_NOT_FOUND:
        case ERROR_INVALID_DRIVE:
        case ERROR_DIRECTORY:
            return ERROR_PATH_NOT_FOUND;
        case ERROR_WRITE_PROTECT:
            return ERROR_ACCESS_DENIED;
        case ERROR_NOT_ENOUGH_MEMORY:
            return ERROR_OUTOFMEMORY;
        case ERROR_HANDLE_DISK_FULL:
            return ERROR_DISK_FULL;
        case ERROR_FILE_EXISTS:
            return ERROR_ALREADY_EXISTS;
        default:
            return code;
    }
}

}  // namespace wm::platform
