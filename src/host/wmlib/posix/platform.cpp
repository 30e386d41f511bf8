#include "../platform.h"

#include <dlfcn.h>
#include <pthread.h>
#include <time.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "common/textbridge.h"
#include "common/trace.h"

namespace wm::platform {

void NameThread(std::thread::native_handle_type thread, const char* name) noexcept {
    constexpr std::size_t mostCharacters = 15;
    char cut[mostCharacters + 1] = {};
    std::strncpy(cut, name, mostCharacters);
    pthread_setname_np(thread, cut);
}

std::uint64_t UptimeMs() noexcept {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000 +
           static_cast<std::uint64_t>(now.tv_nsec) / 1000000;
}

std::wstring LibraryFolder() {
    Dl_info info{};
    static const char anchor = 0;
    std::wstring folder;
    if (dladdr(&anchor, &info) == 0 || info.dli_fname == nullptr || !ToWide(info.dli_fname, folder))
        return {};
    const std::size_t separator = folder.rfind(L'/');
    return separator == std::wstring::npos ? L"." : folder.substr(0, separator);
}

bool EnvironmentVariable(const std::string& name, std::wstring& value) {
    const char* const variable = std::getenv(name.c_str());
    return variable != nullptr && ToWide(variable, value);
}

std::wstring_view Separators() noexcept {
    return L"/";
}

const wchar_t* ComponentExtension() noexcept {
    return L".so";
}

LoadedLibrary LoadComponent(const std::wstring& path) {
    std::string narrow;
    if (!ToUtf8(path, narrow))
        return {};
    void* const library = dlopen(narrow.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        const char* reason = dlerror();
        Trace(message::componentNotLoaded, ZEL::hr::fail,
              reason != nullptr ? reason : narrow.c_str());
        return {};
    }
    return {true, reinterpret_cast<ZEL::GetFactoryFunction>(dlsym(library, "GetFactory"))};
}

std::uint32_t Win32Code(const std::error_code& error) noexcept {
    switch (error.value()) {
        case ENOENT:
        case ENOTDIR:
            return 3;
        case EACCES:
        case EPERM:
        case EROFS:
            return 5;
        case EMFILE:
        case ENFILE:
            return 4;
        case EINVAL:
            return 87;
        case ENOMEM:
            return 14;
        case EAGAIN:
            return 1450;  // no system resources
        case ENOSPC:
        case EDQUOT:
            return 112;
        case EEXIST:
            return 183;
        case EBUSY:
            return 170;
        default:
            return 1117;  // the device failed
    }
}

}  // namespace wm::platform
