#include "common/pathnormaliser.h"

#include <boost/regex.hpp>
#include <span>

#include "common/foldertokens.h"
#include "common/patterntext.h"
#include "common/thismachine.h"
#include "common/trace.h"
#include "common/userfolder.h"

// One path of a query becomes the set of paths that rows may have for it. It goes through two
// stages:
//
//   CSIDL_APPDATA\x     --folders, drives-->   C:\Users\ann\AppData\Roaming\x, ..bob..
//   %PROGRAMFILES%\x    --variables-->         C:\Program Files\x, C:\Program Files (x86)\x
//
// The first makes a path for each folder or drive that a leading token stands for; without a token
// the path goes on as it is. The second makes, for each user, the text with the user's variables,
// and beside it the texts of the places to which Windows redirects 32-bit programs. These
// redirections are told by variables, so they are applied before those are replaced, and are the
// same for all users. A text without % needs no user, and is looked at once.
//
// A path may be a regular expression. Its tokens then end in two backslashes where a plain path has
// one, and all that is put into it is escaped.
//
// While variables are replaced, < and > mark the % signs of names that nobody knows, so that the
// search for the next name goes on behind them. At the end all of them turn back into %, also those
// that the path had itself: no path holds one, but a regular expression may, and loses groups such
// as (?<name>..) that way.

namespace ZEL {

namespace {

constexpr std::uint32_t lastMajorVersionWithoutServicing = 5;

// The tokens name one backslash, which a path that is a regular expression writes as two.
std::wstring_view Separator(bool isPattern) {
    return isPattern ? L"\\\\" : L"\\";
}

std::wstring ForPath(const std::wstring& text, bool isPattern) {
    return isPattern ? EscapeForPattern(text) : text;
}

// Length of the token and its separator at the start of `path`, 0 when another stands there.
std::size_t TokenLength(std::wstring_view path, const wchar_t* name, bool isPattern) {
    const std::wstring token = L"CSIDL_" + std::wstring(name).append(Separator(isPattern));
    return StartsWithNoCase(path, token) ? token.size() : 0;
}

// A token that stands for drives by their kind.
struct DriveToken {
    const wchar_t* name;
    std::uint32_t type;  // 0: of every kind that has a token
};
constexpr DriveToken driveTokens[] = {
    {L"DRIVE_FIXED", wm::driveType::fixed},
    {L"DRIVE_REMOVABLE", wm::driveType::removable},
    {L"DRIVE_REMOTE", wm::driveType::remote},
    {L"DRIVE_CDROM", wm::driveType::cdrom},
    {L"DRIVE", 0},
};

struct Replacement {
    const wchar_t* pattern;
    const wchar_t* text;
};
// Where newer versions of Windows keep what service packs left; takes the place of the text and is
// no variant beside it.
constexpr Replacement servicingRows[] = {
    {LR"(%WINDIR%\\ServicePackFiles)", LR"(%WINDIR%\\servicing)"},
};
// What a 32-bit program opens when it says the left side. The rows are applied one after the other
// to the same text.
constexpr Replacement rows32Bit[] = {
    {LR"(%PROGRAMFILES%\\)", LR"(%PROGRAMFILES(x86)%\\)"},
    {LR"(%COMMONPROGRAMFILES%\\)", LR"(%COMMONPROGRAMFILES(x86)%\\)"},
    {LR"(%WINDIR%\\System32)", LR"(%WINDIR%\\SysWow64)"},
};
constexpr Replacement armRows[] = {
    {LR"(%PROGRAMFILES%\\)", LR"(%PROGRAMFILES(ARM)%\\)"},
    {LR"(%COMMONPROGRAMFILES%\\)", LR"(%COMMONPROGRAMFILES(ARM)%\\)"},
    {LR"(%WINDIR%\\System32)", LR"(%WINDIR%\\SysArm32)"},
};

// A list of replacements, compiled, in both copies. Compiled once in the process: a query may have
// thousands of paths.
class ReplacementList {
public:
    explicit ReplacementList(std::span<const Replacement> rows) {
        for (const Replacement& row : rows) {
            plain_.push_back(Compile(row.pattern, row.text));
            doubled_.push_back(
                Compile(WithDoubledSeparators(row.pattern), WithDoubledSeparators(row.text)));
        }
    }
    std::wstring Apply(std::wstring text, bool isPattern) const {
        for (const Compiled& row : isPattern ? doubled_ : plain_)
            text = boost::regex_replace(text, row.pattern, row.text);
        return text;
    }

private:
    struct Compiled {
        boost::wregex pattern;
        std::wstring text;
    };
    static Compiled Compile(const std::wstring& pattern, const std::wstring& text) {
        return {boost::wregex(pattern, boost::regex::perl | boost::regex::icase), text};
    }

    std::vector<Compiled> plain_, doubled_;
};

// A token of a variable: % signs around at least one character that is no =, the shortest such run.
struct VariableToken {
    std::size_t at = std::wstring::npos;
    std::size_t length = 0;
};
VariableToken FindVariableToken(const std::wstring& text) {
    for (std::size_t at = text.find(L'%'); at != std::wstring::npos; at = text.find(L'%', at + 1)) {
        if (at + 1 == text.size() || text[at + 1] == L'=')
            continue;
        const std::size_t end = text.find_first_of(L"%=", at + 2);
        if (end != std::wstring::npos && text[end] == L'%')
            return {at, end + 1 - at};
    }
    return {};
}

// The texts that one text stands for before variables are replaced, without repetitions: as it
// stands, as 32-bit programs see it and, on Arm, as 32-bit Arm programs do.
std::vector<std::wstring> RedirectedTexts(wm::IMachineDescription& machine,
                                          const std::wstring& text, bool isPattern) {
    static const ReplacementList servicing(servicingRows), wow(rows32Bit), arm(armRows);
    std::vector<std::wstring> texts{text};
    if (text.find(L'%') == std::wstring::npos)
        return texts;
    if (machine.OsMajorVersion() > lastMajorVersionWithoutServicing)
        texts[0] = servicing.Apply(text, isPattern);
    const auto add = [&](std::wstring redirected) {
        if (redirected != texts[0])
            texts.push_back(std::move(redirected));
    };
    add(wow.Apply(texts[0], isPattern));
    if (machine.IsArm())
        add(arm.Apply(texts[0], isPattern));
    return texts;
}

}  // namespace

HRESULT PathNormaliser::ExpandPathVariants(const wchar_t* path, PathSet& out, bool isPattern) {
    if (path == nullptr)
        return hr::invalidArgument;
    std::vector<std::wstring> sids;
    const HRESULT listed = machine_.ProfileSids(sids);
    if (Failed(listed))
        wm::Trace(wm::message::profilesNotListed, listed);
    PathSet stage;
    ExpandFolderTokens(path, stage, isPattern);
    ExpandDriveTokens(path, stage, isPattern);
    if (stage.empty())
        stage.insert(path);
    for (const std::wstring& text : stage) {
        const std::vector<std::wstring> texts = RedirectedTexts(machine_, text, isPattern);
        for (const std::wstring& sid : sids) {
            const std::wstring expanded = ExpandEnvironmentTokens(sid, texts[0], isPattern);
            out.insert(expanded);
            for (std::size_t i = 1; i < texts.size(); ++i) {
                std::wstring redirected = ExpandEnvironmentTokens(sid, texts[i], isPattern);
                if (!EqualsNoCase(redirected, expanded))
                    out.insert(std::move(redirected));
            }
            if (text.find(L'%') == std::wstring::npos)
                break;  // nothing in it depends on the user
        }
    }
    if (out.empty())
        out = std::move(stage);
    return hr::ok;
}

void PathNormaliser::ExpandFolderTokens(const std::wstring& path, PathSet& out, bool isPattern) {
    // The first name that fits decides: longer names of a family stand ahead of shorter ones.
    for (const FolderToken& row : FolderTokenTable()) {
        const std::size_t length = TokenLength(path, row.name, isPattern);
        if (length == 0)
            continue;
        const auto add = [&](const std::wstring& folder) {
            out.insert(ForPath(folder, isPattern)
                           .append(Separator(isPattern))
                           .append(path, length, std::wstring::npos));
        };
        const int folder = row.folder | wm::folderFlag::dontVerify;
        std::wstring found;
        if (!row.perUser) {
            if (machine_.Folder(folder, found))
                add(found);
            return;
        }
        for (const wm::MachineUser& user : broker_.Users())
            if (FolderOfUser(machine_, user, folder, found))
                add(found);
        return;
    }
}

void PathNormaliser::ExpandDriveTokens(const std::wstring& path, PathSet& out, bool isPattern) {
    const auto add = [&](const std::wstring& root, std::size_t length) {
        out.insert(ForPath(root, isPattern).append(path, length, std::wstring::npos));
    };
    for (const DriveToken& token : driveTokens) {
        const std::size_t length = TokenLength(path, token.name, isPattern);
        for (wchar_t letter = L'A'; length != 0 && letter <= L'Z'; ++letter) {
            const std::uint32_t type = machine_.DriveType(letter);
            const bool isDrive = type >= wm::driveType::removable && type <= wm::driveType::cdrom;
            if (token.type == 0 ? isDrive : type == token.type)
                add(std::wstring(1, letter) + L":\\", length);
        }
    }
    constexpr std::size_t rootLength = 3;
    std::wstring system;
    const std::size_t length = TokenLength(path, L"SYSTEM_DRIVE", isPattern);
    if (length != 0 && machine_.SystemDirectory(system))
        add(system.substr(0, rootLength), length);
}

// One name after the other, from the front. A value may hold further names.
std::wstring PathNormaliser::ExpandEnvironmentTokens(const std::wstring& sid,
                                                     const std::wstring& text, bool isPattern) {
    constexpr int mostTokens = 64;  // a variable may name itself
    std::wstring work = text;
    std::wstring value;
    for (int i = 0; i < mostTokens; ++i) {
        const VariableToken token = FindVariableToken(work);
        if (token.length == 0)
            break;
        std::wstring name = work.substr(token.at, token.length);
        std::erase(name, L'%');
        if (broker_.LookupUserVariable(sid, name, value) == 1) {
            work.replace(token.at, token.length, ForPath(value, isPattern));
        } else {
            work[token.at] = L'<';
            work[token.at + token.length - 1] = L'>';
        }
    }
    for (wchar_t& c : work)
        if (c == L'<' || c == L'>')
            c = L'%';
    return work;
}

HRESULT ExpandPathVariants(const wchar_t* path, PathSet& out, bool isPattern) {
    const auto broker = CEnvironmentVariableBroker::GetInstance();
    return PathNormaliser(wm::Machine(), *broker).ExpandPathVariants(path, out, isPattern);
}

}  // namespace ZEL
