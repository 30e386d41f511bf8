#pragma once

#include <set>
#include <string>

#include "common/machinedescription.h"
#include "common/pathnormaliser.h"
#include "common/patterntext.h"
#include "common/textbridge.h"

namespace ZEL::test {

inline const wchar_t* const aliceSid = L"S-1-5-21-1-2-3-1001";
inline const wchar_t* const bobSid = L"S-1-5-21-1-2-3-1002";

// A Windows machine as Windows tells of it: alice is logged on and runs the process, bob has only
// stored variables, and folders of users are known for the calling account alone. Folders that no
// test cares for are named after their number.
class WindowsMachine final : public wm::IMachineDescription {
public:
    std::uint32_t OsMajorVersion() override { return majorVersion; }
    bool IsArm() override { return isArm; }

    HRESULT ProfileSids(std::vector<std::wstring>& sids) override {
        for (const wm::MachineUser& user : users)
            sids.push_back(user.sid);
        return listResult;
    }
    HRESULT LoadUsers(std::vector<wm::MachineUser>& out) override {
        out = users;
        return listResult;
    }
    bool Folder(int folder, std::wstring& path) override {
        const int number = folder & wm::folderFlag::number;
        static const std::map<int, std::wstring> known = {
            {0x1A, L"C:\\Users\\alice\\AppData\\Roaming"},
            {0x1C, L"C:\\Users\\alice\\AppData\\Local"},
            {0x23, L"C:\\ProgramData"},
            {0x24, L"C:\\Windows"},
            {0x25, L"C:\\Windows\\System32"},
            {0x26, L"C:\\Program Files"},
            {0x28, L"C:\\Users\\alice"},
            {0x2A, L"C:\\Program Files (x86)"},
            {0x2B, L"C:\\Program Files\\Common Files"},
            {0x2C, L"C:\\Program Files (x86)\\Common Files"},
            {0x2E, L"C:\\Users\\Public\\Documents"},
        };
        if (number == unknownFolder)
            return false;
        const auto found = known.find(number);
        if (found != known.end())
            path = found->second;
        else
            path =
                (IsPerUser(number) ? L"C:\\Users\\alice\\F" : L"C:\\F") + std::to_wstring(number);
        return true;
    }
    bool UserFolder(const wm::MachineUser&, int, std::wstring&) override { return false; }
    std::uint32_t DriveType(wchar_t letter) override {
        const auto found = drives.find(letter);
        return found != drives.end() ? found->second : wm::driveType::none;
    }
    bool SystemDirectory(std::wstring& path) override {
        path = L"C:\\Windows\\system32";
        return true;
    }
    bool ProcessVariable(const std::wstring& name, std::wstring& value) override {
        for (const auto& [known, text] : variables) {
            if (!EqualsNoCase(known, name))
                continue;
            value = text;
            return true;
        }
        return false;
    }
    bool ComputerName(std::wstring& name) override {
        name = L"DESK";
        return true;
    }

    static bool IsPerUser(int number) {
        static const std::set<int> perUser = {0x00, 0x02, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0B,
                                              0x0D, 0x0E, 0x10, 0x13, 0x15, 0x1A, 0x1B, 0x1C, 0x1D,
                                              0x20, 0x21, 0x22, 0x27, 0x28, 0x30, 0x3B};
        return perUser.contains(number);
    }

    std::uint32_t majorVersion = 10;
    bool isArm = false;
    int unknownFolder = 0x11;  // drives are no folder
    HRESULT listResult = hr::ok;
    std::map<wchar_t, std::uint32_t> drives = {{L'C', 3}, {L'D', 3}, {L'E', 5},
                                               {L'R', 2}, {L'X', 0}, {L'Z', 4}};
    std::map<std::wstring, std::wstring> variables = {
        {L"CommonProgramFiles(Arm)", L"C:\\Program Files (Arm)\\Common Files"},
        {L"ProgramFiles(Arm)", L"C:\\Program Files (Arm)"},
        {L"ProgramW6432", L"C:\\Program Files"},
        {L"ComSpec", L"C:\\Windows\\system32\\cmd.exe"},
        {L"COMPUTERNAME", L"DESK"},
        {L"SystemRoot", L"C:\\Windows"}};
    std::vector<wm::MachineUser> users = {
        {aliceSid,
         L"alice",
         L"DESK",
         L"C:\\Users\\alice",
         wm::VariableSource::stored,
         {{L"Own", L"A+B|C"}, {L"USERNAME", L"another"}}},
        {bobSid,
         L"bob",
         L"CORP",
         L"D:\\Profiles\\bob.CORP",
         wm::VariableSource::stored,
         {{L"OneDrive", L"%USERPROFILE%\\OneDrive"}, {L"Loop", L"%loop%"}, {L"Dollar", L"$1\\&"}}},
    };
};

inline std::set<std::string> Utf8Set(const PathSet& texts) {
    std::set<std::string> out;
    for (const std::wstring& text : texts)
        out.insert(wm::ToUtf8Lossy(text));
    return out;
}

inline std::wstring WideText(const std::string& utf8) {
    std::wstring wide;
    wm::ToWide(utf8, wide);
    return wide;
}

}  // namespace ZEL::test
