#include "../platform.h"

#include <cerrno>
#include <type_traits>

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
        set(HandleOf(thread), WidePath(name).c_str());
    } catch (...) {
        return;  // it goes without a name
    }
}

std::uint64_t UptimeMs() noexcept {
    return ::GetTickCount64();
}

std::wstring LibraryFolder() {
    static const char anchor = 0;
    constexpr DWORD flags =
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
    HMODULE library = nullptr;
    wchar_t path[MAX_PATH] = {};
    if (::GetModuleHandleExW(flags, reinterpret_cast<const wchar_t*>(&anchor), &library) == 0 ||
        ::GetModuleFileNameW(library, path, MAX_PATH) >= MAX_PATH)
        return {};
    const std::wstring file = path;
    const std::size_t separator = file.rfind(L'\\');
    return separator == std::wstring::npos ? L"." : file.substr(0, separator);
}

const wchar_t* ComponentExtension() noexcept {
    return L".dll";
}

LoadedLibrary LoadComponent(const std::wstring& path) {
    const HMODULE library = ::LoadLibraryW(path.c_str());
    if (library == nullptr) {
        Trace(message::componentNotLoaded, ZEL::FromWin32(::GetLastError()), ToUtf8Lossy(path));
        return {};
    }
    return {true, reinterpret_cast<ZEL::GetFactoryFunction>(
                      reinterpret_cast<void*>(::GetProcAddress(library, "GetFactory")))};
}

// Most errors are the system's own codes; those of the C library have small numbers that mean the
// same kinds.
std::uint32_t Win32Code(int error) noexcept {
    switch (error) {
        case EINVAL:
            return ERROR_INVALID_PARAMETER;
        case EAGAIN:
            return ERROR_NO_SYSTEM_RESOURCES;
        default:
            return static_cast<std::uint32_t>(error);
    }
}

}  // namespace wm::platform
