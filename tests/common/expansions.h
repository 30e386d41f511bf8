#pragma once

#include <gtest/gtest.h>

#include <string>

#include "common/foldertokens.h"
#include "common/pathnormaliser.h"
#include "common/registrynormaliser.h"
#include "windowsmachine.h"

namespace ZEL::test {

// What all kinds of paths stand for on a machine, one path a line: on another system, from the
// machine's description, it has to be the same text.
inline std::string ExpansionsOf(wm::IMachineDescription& machine) {
    std::vector<std::wstring> paths = {L"C:\\a.txt",
                                       L"%PROGRAMFILES%\\x.exe",
                                       L"%COMMONPROGRAMFILES%\\x",
                                       L"%WINDIR%\\System32",
                                       L"%WINDIR%\\servicing",
                                       L"%USERPROFILE%\\x",
                                       L"%LOCALAPPDATA%\\x",
                                       L"%APPDATA%\\x",
                                       L"%TEMP%\\x",
                                       L"%USERNAME%",
                                       L"%USERDOMAIN%",
                                       L"%COMPUTERNAME%",
                                       L"%PUBLIC%\\x",
                                       L"%ALLUSERSPROFILE%\\x",
                                       L"%ProgramW6432%\\x",
                                       L"%SystemRoot%\\x",
                                       L"%ComSpec%",
                                       L"%HOMEDRIVE%%HOMEPATH%",
                                       L"%NOSUCH%\\x",
                                       L"%ZelKept%",
                                       L"CSIDL_DRIVE\\x",
                                       L"CSIDL_DRIVE_CDROM\\x",
                                       L"CSIDL_DRIVE_REMOVABLE\\x",
                                       L"CSIDL_DRIVE_REMOTE\\x",
                                       L"CSIDL_DRIVE_FIXED\\x",
                                       L"CSIDL_SYSTEM_DRIVE\\x"};
    for (const FolderToken& row : FolderTokenTable())
        paths.push_back(std::wstring(L"CSIDL_") + row.name + L"\\x");
    CEnvironmentVariableBroker broker(machine);
    std::string text;
    for (const std::wstring& path : paths)
        for (const bool isPattern : {false, true}) {
            const std::wstring asked = isPattern ? EscapeForPattern(path) : path;
            PathSet out;
            EXPECT_EQ(
                PathNormaliser(machine, broker).ExpandPathVariants(asked.c_str(), out, isPattern),
                hr::ok);
            text += wm::ToUtf8Lossy(asked);
            for (const std::string& variant : Utf8Set(out))
                text += "\t" + variant;
            text += "\n";
        }
    for (const wchar_t* path : {L"HKLM\\Software\\x", L"HKCU\\Software\\x", L"HKCR\\x",
                                L"HKLM\\Software\\Wow6432Node\\x", L"HKLM\\System\\x"}) {
        std::vector<std::wstring> out;
        EXPECT_EQ(ExpandRegistryVariants(machine, path, false, out), hr::ok);
        text += wm::ToUtf8Lossy(path);
        for (const std::wstring& variant : out)
            text += "\t" + wm::ToUtf8Lossy(variant);
        text += "\n";
    }
    return text;
}

}  // namespace ZEL::test
