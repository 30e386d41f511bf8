#include "common/registrynormaliser.h"

#include <algorithm>
#include <boost/regex.hpp>

#include "common/patterntext.h"
#include "common/thismachine.h"

// One registry path of a query becomes the keys that it stands for on the machine, in four steps:
//
//   canonical   HKEY_LOCAL_MACHINE\.. -> HKLM\..; a key under any user's SID -> %HKU%\..
//   copies      HKLM\Software\.. also as the copy that Windows keeps of it for each user
//   users       %HKU%\.. -> HKU\<SID>\.. for each user of the machine
//   long form   HKLM\.. -> HKEY_LOCAL_MACHINE\.., HKU\.. -> HKEY_USERS\..
//
// Rows are compared with the long form alone. So a sensor that writes short roots is found only by
// questions without a root, or by a pattern that this routine does not recognise as one.
//
// Two things are meant and look like mistakes. The 32-bit view of a key (Wow6432Node) folds to the
// plain key and does not come back. And a path under one user's SID asks for every user's key.
//
// All rows come in two forms: for plain paths, and for paths that are regular expressions, which
// write each backslash twice.

namespace ZEL {

namespace {

constexpr std::uint32_t lastMajorVersionWithoutVirtualisation = 5;

struct Row {
    const wchar_t* pattern;
    const wchar_t* replacement;
};

// Applied one after the other, each to what the former has made. The last but two never matches:
// the row for a user's own key takes such a text first, whatever follows the SID.
constexpr Row canonicalRows[] = {
    {LR"(^HKEY_LOCAL_MACHINE)", LR"(HKLM)"},
    {LR"(^HKEY_CURRENT_USER)", LR"(HKCU)"},
    {LR"(^HKEY_CLASSES_ROOT)", LR"(HKCR)"},
    {LR"(^HKEY_USERS)", LR"(HKU)"},
    {LR"(^HKU\\S-\d-\d+-(\d+-){1,14}\d+_Classes\\VirtualStore\\Machine\\Software)",
     LR"(HKLM\\Software)"},
    {LR"(^HKCU)", LR"(%HKU%)"},
    {LR"(^HKU\\S-\d-\d+-(\d+-){1,14}\d+)", LR"(%HKU%)"},
    {LR"(^HKCR)", LR"(%HKUClasses%)"},
    {LR"(^HKU\\S-\d-\d+-(\d+-){1,14}\d+_Classes)", LR"(%HKUClasses%)"},
    {LR"(^HKLM\\Software\\Wow6432Node)", LR"(HKLM\\Software)"},
    {LR"(^HKLM\\Software\\Classes\\Wow6432Node)", LR"(HKLM\\Software\\Classes)"},
};
// Where Windows puts what a program without rights writes under HKLM\Software, for each user apart.
constexpr Row virtualStoreRow[] = {
    {LR"(^HKLM\\Software)", LR"(%HKUClasses%\\VirtualStore\\Machine\\Software)"},
};
constexpr Row longFormRows[] = {
    {LR"(^HKLM)", LR"(HKEY_LOCAL_MACHINE)"},
    {LR"(^HKU)", LR"(HKEY_USERS)"},
};

struct UserToken {
    const wchar_t* text;
    const wchar_t* behindSid;
};
// In the order in which a text is searched for them.
constexpr UserToken userTokens[] = {{L"%HKU%", L""}, {L"%HKUClasses%", L"_Classes"}};

struct CompiledRow {
    boost::wregex pattern;
    std::wstring replacement;
};
using CompiledRows = std::vector<CompiledRow>;

template <std::size_t n>
CompiledRows Compile(const Row (&rows)[n], bool isPattern) {
    CompiledRows compiled;
    for (const Row& row : rows) {
        const std::wstring pattern = isPattern ? WithDoubledSeparators(row.pattern) : row.pattern;
        compiled.push_back({boost::wregex(pattern, boost::regex::perl | boost::regex::icase),
                            isPattern ? WithDoubledSeparators(row.replacement) : row.replacement});
    }
    return compiled;
}

struct Rows {
    explicit Rows(bool isPattern)
        : canonical(Compile(canonicalRows, isPattern)),
          virtualStore(Compile(virtualStoreRow, isPattern)),
          longForm(Compile(longFormRows, isPattern)) {}
    const CompiledRows canonical, virtualStore, longForm;
};

// Compiled at the first call and then shared by all threads, as matching does not change them.
const Rows& RowsFor(bool isPattern) {
    static const Rows plain(false), doubled(true);
    return isPattern ? doubled : plain;
}

std::wstring Apply(const CompiledRows& rows, std::wstring text) {
    for (const CompiledRow& row : rows)
        text = boost::regex_replace(text, row.pattern, row.replacement);
    return text;
}

const UserToken* FindUserToken(const std::wstring& text) {
    const std::wstring upper = UpperAscii(text);
    for (const UserToken& token : userTokens)
        if (upper.find(UpperAscii(token.text)) != std::wstring::npos)
            return &token;
    return nullptr;
}

// Adds the text once for each user, or as it stands when it has no token of a user.
HRESULT AddForUsers(wm::IMachineDescription& machine, const std::wstring& text, bool isPattern,
                    std::vector<std::wstring>& out) {
    const UserToken* const token = FindUserToken(text);
    if (token == nullptr) {
        out.push_back(text);
        return hr::ok;
    }
    std::vector<std::wstring> sids;
    const HRESULT result = machine.ProfileSids(sids);
    if (Failed(result))
        return result;
    const std::size_t rest = std::min(text.find(L'\\'), text.size());
    for (const std::wstring& sid : sids)
        out.push_back(std::wstring(isPattern ? LR"(HKU\\)" : LR"(HKU\)")
                          .append(sid)
                          .append(token->behindSid)
                          .append(text, rest, std::wstring::npos));
    return hr::ok;
}

}  // namespace

HRESULT ExpandRegistryVariants(wm::IMachineDescription& machine, const wchar_t* path,
                               bool isPattern, std::vector<std::wstring>& out) {
    if (path == nullptr)
        return hr::invalidArgument;
    const Rows& rows = RowsFor(isPattern);
    std::vector<std::wstring> texts{Apply(rows.canonical, path)};
    if (machine.OsMajorVersion() > lastMajorVersionWithoutVirtualisation) {
        std::wstring copy = Apply(rows.virtualStore, texts[0]);
        if (copy != texts[0])
            texts.push_back(std::move(copy));
    }
    std::vector<std::wstring> forUsers;
    for (const std::wstring& text : texts) {
        const HRESULT result = AddForUsers(machine, text, isPattern, forUsers);
        if (Failed(result))
            return result;
    }
    for (const std::wstring& text : forUsers)
        out.push_back(Apply(rows.longForm, text));
    return hr::ok;
}

HRESULT ExpandRegistryVariants(const wchar_t* path, bool isPattern,
                               std::vector<std::wstring>& out) {
    return ExpandRegistryVariants(wm::Machine(), path, isPattern, out);
}

}  // namespace ZEL
