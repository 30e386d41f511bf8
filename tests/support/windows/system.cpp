#include "support/system.h"

#include <windows.h>
// The others need it first.
#include <aclapi.h>
#include <gtest/gtest.h>
#include <sddl.h>

#include <cstring>
#include <vector>

namespace ZEL::test {

namespace fs = std::filesystem;

const wchar_t* const hostLibrary = L"wmLib";

void* ExportOf(const std::wstring& library, const char* name) {
    const HMODULE loaded = ::LoadLibraryW((library + L".dll").c_str());
    EXPECT_NE(loaded, nullptr) << ::GetLastError();
    return reinterpret_cast<void*>(::GetProcAddress(loaded, name));
}

namespace {

bool IsLinkAt(const fs::path& path) {
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT);
}

bool IsWine() {
    return ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

// Wine 8 says that it made a link and makes none, but shows those of the system below it as what
// they would be here.
std::wstring BelowWine(const fs::path& path) {
    using Function = char*(CDECL*)(const wchar_t*);
    const auto ask = reinterpret_cast<Function>(reinterpret_cast<void*>(
        ::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name")));
    char* const name = ask != nullptr ? ask(path.c_str()) : nullptr;
    if (name == nullptr)
        return {};
    const std::wstring text = fs::path(std::u8string(name, name + std::strlen(name))).native();
    ::HeapFree(::GetProcessHeap(), 0, name);
    return text;
}

bool LinkBelowWine(const fs::path& target, const fs::path& link) {
    const std::wstring from = BelowWine(target), to = BelowWine(link.parent_path());
    if (from.empty() || to.empty())
        return false;
    std::wstring command =
        L"/bin/ln -s \"" + from + L"\" \"" + to + L"/" + link.filename().native() + L"\"";
    STARTUPINFOW start{};
    PROCESS_INFORMATION started{};
    start.cb = sizeof start;
    if (::CreateProcessW(L"\\\\?\\unix\\bin\\ln", command.data(), nullptr, nullptr, FALSE, 0,
                         nullptr, nullptr, &start, &started) == 0)
        return false;
    ::WaitForSingleObject(started.hProcess, INFINITE);
    ::CloseHandle(started.hProcess);
    ::CloseHandle(started.hThread);
    for (int tries = 0; tries < 1000 && !IsLinkAt(link); ++tries)
        ::Sleep(1);  // such a process is not waited for
    return IsLinkAt(link);
}

bool Link(const fs::path& target, const fs::path& link, DWORD flags) {
    ::CreateSymbolicLinkW(link.c_str(), target.c_str(),
                          flags | SYMBOLIC_LINK_FLAG_ALLOW_UNPRIVILEGED_CREATE);
    return IsLinkAt(link);
}

}  // namespace

fs::path MakeTempFolder() {
    static int count = 0;
    wchar_t parent[MAX_PATH + 1] = {};
    EXPECT_NE(::GetTempPathW(MAX_PATH, parent), 0u);
    const std::wstring path = std::wstring(parent) + L"zelstore-" +
                              std::to_wstring(::GetCurrentProcessId()) + L"-" +
                              std::to_wstring(::GetTickCount64()) + L"-" + std::to_wstring(++count);
    EXPECT_NE(::CreateDirectoryW(path.c_str(), nullptr), 0) << ::GetLastError();
    return path;
}

// Links go first: the standard library would remove what they point at.
void RemoveTempFolder(const fs::path& folder) {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) {
        if (IsLinkAt(entry.path()))
            ::RemoveDirectoryW(entry.path().c_str());
        else if (entry.is_directory(error))
            RemoveTempFolder(entry.path());
        else
            ::DeleteFileW(entry.path().c_str());
    }
    ::RemoveDirectoryW(folder.c_str());
}

// The C library keeps a copy that it must hear of, too.
void SetEnvironment(const std::string& name, const std::string& value) {
    EXPECT_EQ(::_putenv_s(name.c_str(), value.c_str()), 0);
}

bool LinkFolder(const fs::path& target, const fs::path& link) {
    return Link(target, link, SYMBOLIC_LINK_FLAG_DIRECTORY) || LinkBelowWine(target, link);
}

bool CanRemoveFolderLinks() {
    return !IsWine();
}

bool LinkFile(const fs::path& target, const fs::path& link) {
    return Link(target, link, 0);
}

void MakeFolderWithoutUnicode(const fs::path& parent) {
    ::CreateDirectoryW((parent.native() + L"\\half a pair: \xD800").c_str(), nullptr);
}

void OpenToOthers(const fs::path& file) {
    PSECURITY_DESCRIPTOR all = nullptr;
    EXPECT_NE(::ConvertStringSecurityDescriptorToSecurityDescriptorW(
                  L"D:(A;;FA;;;WD)", SDDL_REVISION_1, &all, nullptr),
              0);
    EXPECT_NE(::SetFileSecurityW(file.c_str(), DACL_SECURITY_INFORMATION, all), 0);
    ::LocalFree(all);
}

bool IsForItsOwnerAlone(const fs::path& path) {
    constexpr SECURITY_INFORMATION asked = OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
    std::vector<char> buffer(4096);
    DWORD size = 0;
    PSID owner = nullptr;
    PACL access = nullptr;
    BOOL present = FALSE, defaulted = FALSE;
    if (!::GetFileSecurityW(path.c_str(), asked, buffer.data(), static_cast<DWORD>(buffer.size()),
                            &size) ||
        !::GetSecurityDescriptorOwner(buffer.data(), &owner, &defaulted) ||
        !::GetSecurityDescriptorDacl(buffer.data(), &present, &access, &defaulted) || !present ||
        access == nullptr)
        return false;
    for (DWORD i = 0; i < access->AceCount; ++i) {
        void* entry = nullptr;
        if (!::GetAce(access, i, &entry))
            return false;
        // The system itself has access to everything; Wine tells so.
        auto* const allowed = static_cast<ACCESS_ALLOWED_ACE*>(entry);
        if (allowed->Header.AceType == ACCESS_ALLOWED_ACE_TYPE &&
            !::EqualSid(&allowed->SidStart, owner) &&
            !::IsWellKnownSid(&allowed->SidStart, WinLocalSystemSid))
            return false;
    }
    return true;
}

}  // namespace ZEL::test
