#pragma once

#include <windows.h>

#include <string>
#include <utility>
#include <vector>

#include "common/machinedescription.h"

namespace wm {

// An open key of the registry, closed with the object; null when it could not be opened.
class RegistryKey {
public:
    // Takes the key over, which is then closed here and nowhere else.
    explicit RegistryKey(HKEY key = nullptr) noexcept : key_(key) {}
    RegistryKey(RegistryKey&& other) noexcept : key_(std::exchange(other.key_, nullptr)) {}
    RegistryKey& operator=(RegistryKey&&) = delete;
    ~RegistryKey();

    // With the rights that the caller has; why it failed is not told, since all callers treat a key
    // that can't be opened as one that is not there.
    static RegistryKey Open(HKEY root, const std::wstring& path) noexcept;

    HKEY Get() const noexcept { return key_; }
    explicit operator bool() const noexcept { return key_ != nullptr; }
    // False when there is no such text. Leaves `text` unchanged then. A value of more than 64 KiB
    // counts as none.
    bool ReadText(const wchar_t* name, std::wstring& text) const;
    // Appends the names and texts of all values that are texts. Variables in the texts are not
    // expanded. Values of other types and those that are too large are left out; a failure ends the
    // list early.
    void ReadTexts(std::vector<std::pair<std::wstring, std::wstring>>& out) const;

private:
    HKEY key_;
};

// A privilege of the process while the object lives; then its former state. Privileges are the
// process's and not the thread's: of two objects for one name the first takes it away from both
// when it goes. Where the account does not hold the privilege nothing changes, and what needs it
// fails by itself.
class CTempPrivileges {
public:
    explicit CTempPrivileges(const wchar_t* name) noexcept;
    ~CTempPrivileges();
    CTempPrivileges(const CTempPrivileges&) = delete;
    CTempPrivileges& operator=(const CTempPrivileges&) = delete;

private:
    ::HANDLE token_ = nullptr;
    TOKEN_PRIVILEGES former_{};
};

// The variables of a user who is logged on. False, with nothing changed, for another. What the
// logon computed comes ahead of what is kept, so that it is what counts. The user's settings are
// loaded already and need no privilege.
bool ReadProfileEnvironment(MachineUser& user);

// The variables that are kept for a user's next logon. Loads the user's settings for the time, for
// which the process needs the privilege to restore files. A user whose settings can't be read
// stays without.
void ReadStoredEnvironment(MachineUser& user);

}  // namespace wm
