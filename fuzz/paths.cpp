#include <cpprest/json.h>

#include <algorithm>
#include <boost/regex.hpp>
#include <map>
#include <set>
#include <vector>

#include "common/describedmachine.h"
#include "common/foldertokens.h"
#include "common/pathnormaliser.h"
#include "common/registrynormaliser.h"
#include "common/textbridge.h"
#include "fuzz.h"

// What a path stands for on a described Windows machine, worked out a second time with other means:
// by hand where the product has expressions, and by expressions where it goes by hand. Input: a
// line with any of r for a registry path, p for a path that is an expression, o for an old Windows
// and a for Arm; a line with a user's variable V; the path.

namespace {

using namespace ZEL;
using Wide = std::wstring;
using User = wm::MachineUser;

// Without its end, since the users differ by input.
const char* const description = R"json({
"system_directory": "C:\\Windows\\System32",
"drives": {"C": "fixed", "D": "fixed", "E": "cdrom", "R": "removable"},
"folders": {"WINDOWS": "C:\\Windows", "SYSTEM": "C:\\Windows\\System32"},
"user_folders": {"APPDATA": "AppData\\Roaming", "DESKTOP": "Desk.[1]|top"},
"variables": {"WINDIR": "C:\\Windows", "PROGRAMFILES(ARM)" : "C:\\Arm (x)",
                  "COMMONPROGRAMFILES(X86)" : "C:\\Common (x86)"
},
"users": [
  {"sid": "S-1-5-21-1-2-3-1002", "profile": "D:\\Profiles\\bob.CORP", "variables_are": "session",
   "variables": {"V": "<b>\\", "WINDIR": "D:\\W+n", "PROGRAMFILES(X86)": "%V%"}},
  {
    "sid" : "S-1-5-21-1-2-3-1001",
            "profile" : "C:\\Users\\alice",
                        "variables_are" : "session",
                                          "variables" : {"PROGRAMFILES": "C:\\Program Files", "LOOP": "$1%loop%", "V": )json";

std::unique_ptr<wm::DescribedMachine> Describe(const Wide& v, bool isOld, bool isArm) {
    std::string json = description + web::json::value(wm::ToUtf8Lossy(v)).serialize();
    json.append("}}],\"os_major_version\":").append(isOld ? "5" : "6");
    json.append(",\"arm\":").append(isArm ? "true}" : "false}");
    std::string error;
    auto machine = wm::DescribedMachine::Parse(json, &error);
    fuzz::Check(machine != nullptr, {json, error});
    return machine;
}

Wide Upper(Wide text) {
    for (wchar_t& c : text)
        c = c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - L'a' + L'A') : c;
    return text;
}

Wide ReplaceAll(Wide text, const Wide& from, const Wide& to) {
    for (std::size_t at = 0; (at = Upper(text).find(Upper(from), at)) != Wide::npos;
         at += to.size())
        text.replace(at, from.size(), to);
    return text;
}

struct Expansion {
    wm::IMachineDescription& machine;
    CEnvironmentVariableBroker& broker;
    const bool isPattern;

    // A text of the machine, as it stands in the path.
    Wide Literal(Wide text) const {
        const Wide escaped[][2] = {{L"\\", L"\\\\"}, {L".", L"\\."},  {L"$", L"\\$"},
                                   {L"^", L"\\^"},   {L"{", L"\\{"},  {L"}", L"\\}"},
                                   {L"[", L"\\["},   {L"]", L"\\]"},  {L"(", L"\\("},
                                   {L")", L"\\)"},   {L"|", L"\\|)"}, {L"+", L"\\+"}};
        for (const auto& [from, to] : escaped)
            text = isPattern ? ReplaceAll(text, from, to) : text;
        return text;
    }
    // A text of the tables: one backslash is two in an expression.
    Wide Table(const Wide& text) const {
        return isPattern ? ReplaceAll(text, L"\\", L"\\\\") : text;
    }
    bool TakePrefix(Wide& text, const Wide& prefix, const Wide& replacement) const {
        if (!Upper(text).starts_with(Upper(Table(prefix))))
            return false;
        text.replace(0, Table(prefix).size(), Table(replacement));
        return true;
    }

    Wide ExpandVariables(const User& user, Wide text) const {
        static const boost::wregex token(L"%[^=]+?%");
        boost::wsmatch match;
        for (int i = 0; i < 64 && boost::regex_search(text, match, token); ++i) {
            const auto at = static_cast<std::size_t>(match.position());
            const auto length = static_cast<std::size_t>(match.length());
            const Wide name = ReplaceAll(text.substr(at, length), L"%", L"");
            if (Wide value; broker.LookupUserVariable(user.sid, name, value) == 1)
                text.replace(at, length, Literal(value));
            else
                text.replace(at, 1, L"<").replace(at + length - 1, 1, L">");
        }
        std::replace(text.begin(), text.end(), L'<', L'%');
        std::replace(text.begin(), text.end(), L'>', L'%');
        return text;
    }

    std::set<Wide> Stage(const Wide& path) const {
        const std::size_t end = path.find(Table(L"\\"));
        const Wide token = Upper(path.substr(0, end));
        if (end == Wide::npos || !token.starts_with(L"CSIDL_"))
            return {path};
        const Wide name = token.substr(6), rest = path.substr(end + Table(L"\\").size());
        std::set<Wide> stage;
        for (const FolderToken& row : FolderTokenTable()) {
            Wide folder;
            if (row.name == name && !row.perUser && machine.Folder(row.folder, folder))
                stage.insert(Literal(folder) + Table(L"\\") + rest);
            for (const User& user : broker.Users())
                if (row.name == name && row.perUser && machine.UserFolder(user, row.folder, folder))
                    stage.insert(Literal(folder) + Table(L"\\") + rest);
        }
        static const std::map<Wide, const wchar_t*> drives = {{L"DRIVE_FIXED", L"CD"},
                                                              {L"DRIVE_REMOVABLE", L"R"},
                                                              {L"DRIVE_CDROM", L"E"},
                                                              {L"DRIVE", L"CDER"},
                                                              {L"SYSTEM_DRIVE", L"C"}};
        if (const auto found = drives.find(name); found != drives.end())
            for (const wchar_t* letter = found->second; *letter != 0; ++letter)
                stage.insert(Literal(Wide(1, *letter) + L":\\") + rest);
        return stage.empty() ? std::set<Wide>{path} : stage;
    }

    std::set<Wide> Path(const Wide& path) const {
        std::set<Wide> out;
        for (const Wide& text : Stage(path)) {
            const Wide work = machine.OsMajorVersion() < 6
                                  ? text
                                  : ReplaceAll(text, Table(L"%WINDIR%\\ServicePackFiles"),
                                               Table(L"%WINDIR%\\servicing"));
            for (const User& user : broker.Users()) {
                const Wide expanded = ExpandVariables(user, work);
                out.insert(expanded);
                for (const wchar_t* place : {L"x86", L"ARM"}) {
                    const bool isWow = place[0] == L'x';
                    if (!isWow && !machine.IsArm())
                        continue;
                    Wide other = work;
                    for (const Wide name : {L"%PROGRAMFILES", L"%COMMONPROGRAMFILES"})
                        other = ReplaceAll(other, name + Table(L"%\\"),
                                           name + L"(" + place + L")" + Table(L"%\\"));
                    other =
                        ReplaceAll(other, Table(L"%WINDIR%\\System32"),
                                   Table(isWow ? L"%WINDIR%\\SysWow64" : L"%WINDIR%\\SysArm32"));
                    other = ExpandVariables(user, other);
                    if (Upper(other) != Upper(expanded))
                        out.insert(other);
                }
            }
        }
        return out;
    }

    // Length of HKU and a SID at the start of a text, 0 for none: S, one digit, an
    // authority and two to fifteen numbers.
    std::size_t UserKeyLength(const Wide& text) const {
        const Wide start = Table(L"HKU\\") + L"S-";
        std::size_t at = start.size(), end = 0;
        const auto digits = [&] {
            const std::size_t first = at;
            while (at < text.size() && text[at] >= L'0' && text[at] <= L'9')
                ++at;
            return at - first;
        };
        if (!Upper(text).starts_with(start) || digits() != 1)
            return 0;
        for (int numbers = 0; numbers < 16 && at < text.size() && text[at] == L'-'; ++numbers) {
            ++at;
            if (digits() == 0)
                break;
            end = numbers >= 2 ? at : end;
        }
        return end;
    }

    std::vector<Wide> Registry(Wide text) const {
        TakePrefix(text, L"HKEY_LOCAL_MACHINE", L"HKLM");
        TakePrefix(text, L"HKEY_CURRENT_USER", L"HKCU");
        TakePrefix(text, L"HKEY_CLASSES_ROOT", L"HKCR");
        TakePrefix(text, L"HKEY_USERS", L"HKU");
        const Wide copy = L"_Classes\\VirtualStore\\Machine\\Software";
        if (const std::size_t length = UserKeyLength(text)) {
            Wide rest = text.substr(length);
            text = TakePrefix(rest, copy, L"HKLM\\Software") ? rest : L"%HKU%" + rest;
        }
        TakePrefix(text, L"HKCU", L"%HKU%");
        TakePrefix(text, L"HKCR", L"%HKUClasses%");
        TakePrefix(text, L"HKLM\\Software\\Wow6432Node", L"HKLM\\Software");
        TakePrefix(text, L"HKLM\\Software\\Classes\\Wow6432Node", L"HKLM\\Software\\Classes");
        std::vector<Wide> texts{text}, out;
        if (machine.OsMajorVersion() > 5 &&
            TakePrefix(text, L"HKLM\\Software", L"%HKUClasses%\\VirtualStore\\Machine\\Software"))
            texts.push_back(text);
        for (const Wide& each : texts) {
            const bool isUser = Upper(each).find(L"%HKU%") != Wide::npos;
            const bool isClasses = Upper(each).find(L"%HKUCLASSES%") != Wide::npos;
            const std::size_t end = std::min(each.find(L'\\'), each.size());
            for (const User& user : broker.Users())
                if (isUser || isClasses)
                    out.push_back(Table(L"HKU\\") + user.sid + (isUser ? L"" : L"_Classes") +
                                  each.substr(end));
            if (!isUser && !isClasses)
                out.push_back(each);
        }
        for (Wide& each : out)
            TakePrefix(each, L"HKLM", L"HKEY_LOCAL_MACHINE") ||
                TakePrefix(each, L"HKU", L"HKEY_USERS");
        return out;
    }
};

template <typename Texts>
std::string Joined(const Texts& texts) {
    std::string joined;
    for (const Wide& text : texts)
        joined += wm::ToUtf8Lossy(text) + "\n";
    return joined;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::string flags = input.Line(), variable = input.Line(), text = input.Rest();
    const auto has = [&](char flag) { return flags.find(flag) != std::string::npos; };
    Wide v, path;
    if (!wm::ToWide(variable, v) || !wm::ToWide(text, path))
        return 0;
    v = v.c_str();
    path = path.c_str();
    const auto machine = Describe(v, has('o'), has('a'));
    CEnvironmentVariableBroker broker(*machine);
    const Expansion plain{*machine, broker, has('p')};
    if (has('r')) {
        std::vector<Wide> out;
        const HRESULT result = ExpandRegistryVariants(*machine, path.c_str(), plain.isPattern, out);
        fuzz::Check(result == hr::ok, {flags, text});
        // An expression's ^ stands at the start of each line.
        if (path.find_first_of(L"\n\r\f\x85\x2028\x2029") == Wide::npos)
            fuzz::Check(out == plain.Registry(path),
                        {flags, text, Joined(out), Joined(plain.Registry(path))});
        return 0;
    }
    PathSet out;
    const HRESULT result =
        PathNormaliser(*machine, broker).ExpandPathVariants(path.c_str(), out, plain.isPattern);
    fuzz::Check(result == hr::ok, {flags, variable, text});
    fuzz::Check(out == plain.Path(path),
                {flags, variable, text, Joined(out), Joined(plain.Path(path))});
    return 0;
}
