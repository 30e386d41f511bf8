#include <cpprest/json.h>

#include <algorithm>
#include <boost/regex.hpp>
#include <map>
#include <set>
#include <vector>

#include "common/describedmachine.h"
#include "common/pathnormaliser.h"
#include "common/registrynormaliser.h"
#include "common/textbridge.h"
#include "fuzz.h"
#include "zelstore/schema/text.h"

// What a path stands for on a described Windows machine, worked out a second time with other means:
// by hand where the product has expressions, and by expressions where it goes by hand. Input: a
// line with any of r for a registry path, p for a path that is an expression, o for an old Windows
// and a for Arm; a line with a user's variable V; the path.

namespace {

using namespace ZEL;
using Wide = std::wstring;
using Pairs = std::map<Wide, Wide>;

const Pairs folders = {{L"WINDOWS", L"C:\\Windows"}, {L"SYSTEM", L"C:\\Windows\\System32"}};
const Pairs userFolders = {{L"APPDATA", L"AppData\\Roaming"}, {L"DESKTOP", L"Desk.[1]|top"}};
const std::map<Wide, const wchar_t*> drives = {{L"DRIVE_FIXED", L"CD"}, {L"DRIVE_REMOVABLE", L"R"},
                                               {L"DRIVE_REMOTE", L""},  {L"DRIVE_CDROM", L"E"},
                                               {L"DRIVE", L"CDER"},     {L"SYSTEM_DRIVE", L"C"}};
const Pairs machineVariables = {{L"WINDIR", L"C:\\Windows"},
                                {L"PROGRAMFILES(ARM)", L"C:\\Arm (x)"},
                                {L"COMMONPROGRAMFILES(X86)", L"C:\\Common (x86)"}};

struct User {
    Wide sid, profile;
    Pairs variables;
};
using Users = std::vector<User>;

Users MakeUsers(const Wide& v) {
    return {{L"S-1-5-21-1-2-3-1001",
             L"C:\\Users\\alice",
             {{L"V", v}, {L"PROGRAMFILES", L"C:\\Program Files"}, {L"LOOP", L"$1%loop%"}}},
            {L"S-1-5-21-1-2-3-1002",
             L"D:\\Profiles\\bob.CORP",
             {{L"V", L"<b>\\"}, {L"WINDIR", L"D:\\W+n"}, {L"PROGRAMFILES(X86)", L"%V%"}}}};
}

using Json = web::json::value;

Json JsonText(const Wide& text) {
    return Json(utility::conversions::to_string_t(wm::ToUtf8Lossy(text)));
}

Json JsonPairs(const Pairs& pairs) {
    Json object = Json::object();
    for (const auto& [name, text] : pairs)
        object[JsonText(name).as_string()] = JsonText(text);
    return object;
}

std::unique_ptr<wm::DescribedMachine> Describe(const Users& users, bool isOld, bool isArm) {
    Json json = Json::parse(ZEL_TEXT(
        R"({"system_directory":"C:\\Windows\\System32","drives":{"C":"fixed","D":"fixed","E":"cdrom","R":"removable"}})"));
    json[ZEL_TEXT("os_major_version")] = Json(isOld ? 5 : 6);
    json[ZEL_TEXT("arm")] = Json(isArm);
    json[ZEL_TEXT("folders")] = JsonPairs(folders);
    json[ZEL_TEXT("user_folders")] = JsonPairs(userFolders);
    json[ZEL_TEXT("variables")] = JsonPairs(machineVariables);
    json[ZEL_TEXT("users")] = Json::array();
    for (const User& user : users) {
        Json entry = JsonPairs(
            {{L"sid", user.sid}, {L"profile", user.profile}, {L"variables_are", L"session"}});
        entry[ZEL_TEXT("variables")] = JsonPairs(user.variables);
        json[ZEL_TEXT("users")][json.at(ZEL_TEXT("users")).size()] = entry;
    }
    std::string error;
    auto machine =
        wm::DescribedMachine::Parse(utility::conversions::to_utf8string(json.serialize()), &error);
    fuzz::Check(machine != nullptr, {error});
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
    const Users& users;
    bool isPattern, isOld, isArm;

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
            const Wide name = Upper(ReplaceAll(text.substr(at, length), L"%", L""));
            const auto own = user.variables.find(name);
            const auto common = machineVariables.find(name);
            if (own != user.variables.end())
                text.replace(at, length, Literal(own->second));
            else if (common != machineVariables.end())
                text.replace(at, length, Literal(common->second));
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
        if (const auto found = folders.find(name); found != folders.end())
            stage.insert(Literal(found->second) + Table(L"\\") + rest);
        if (const auto found = userFolders.find(name); found != userFolders.end())
            for (const User& user : users)
                stage.insert(Literal(user.profile + L"\\" + found->second) + Table(L"\\") + rest);
        if (name == L"PROFILE")
            for (const User& user : users)
                stage.insert(Literal(user.profile) + Table(L"\\") + rest);
        if (const auto found = drives.find(name); found != drives.end())
            for (const wchar_t* letter = found->second; *letter != 0; ++letter)
                stage.insert(Literal(Wide(1, *letter) + L":\\") + rest);
        return stage.empty() ? std::set<Wide>{path} : stage;
    }

    std::set<Wide> Path(const Wide& path) const {
        std::set<Wide> out;
        for (const Wide& text : Stage(path)) {
            const Wide work = isOld ? text
                                    : ReplaceAll(text, Table(L"%WINDIR%\\ServicePackFiles"),
                                                 Table(L"%WINDIR%\\servicing"));
            for (const User& user : users) {
                const Wide expanded = ExpandVariables(user, work);
                out.insert(expanded);
                for (const wchar_t* place : {L"x86", L"ARM"}) {
                    const bool isWow = place[0] == L'x';
                    if (!isWow && !isArm)
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

    // Length of HKU and a SID at the start of a text, 0 for none: S, one digit, an authority and
    // two to fifteen numbers.
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
        if (!isOld &&
            TakePrefix(text, L"HKLM\\Software", L"%HKUClasses%\\VirtualStore\\Machine\\Software"))
            texts.push_back(text);
        for (const Wide& each : texts) {
            const bool isUser = Upper(each).find(L"%HKU%") != Wide::npos;
            const bool isClasses = Upper(each).find(L"%HKUCLASSES%") != Wide::npos;
            const std::size_t end = std::min(each.find(L'\\'), each.size());
            for (const User& user : users)
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
    const Users users = MakeUsers(v);
    const Expansion plain{users, has('p'), has('o'), has('a')};
    const auto machine = Describe(users, plain.isOld, plain.isArm);
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
    CEnvironmentVariableBroker broker(*machine);
    PathSet out;
    const HRESULT result =
        PathNormaliser(*machine, broker).ExpandPathVariants(path.c_str(), out, plain.isPattern);
    fuzz::Check(result == hr::ok, {flags, variable, text});
    fuzz::Check(out == plain.Path(path),
                {flags, variable, text, Joined(out), Joined(plain.Path(path))});
    return 0;
}
