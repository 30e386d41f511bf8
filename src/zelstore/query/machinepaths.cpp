#include "zelstore/query/machinepaths.h"

#include "common/boundary.h"
#include "common/pathnormaliser.h"
#include "common/registrynormaliser.h"
#include "common/textbridge.h"
#include "zelstore/database/endwatch.h"

// A query is written for many machines, so its paths may hold what each machine fills in for
// itself: a folder's token, a kind of drive, a user's variable, a registry root. Such a path stands
// for all that the normalisers make of it here, and a row has to match one of them.
//
// A path comes out of a document that anybody may have written. Each expansion counts its work at
// the query's watch, so that a document of many thousand paths ends when it is told to, and a text
// longer than any path is taken as it stands.

namespace ZEL {

using namespace Schema;

namespace {

// The schema's text and wide text are one on Windows and two elsewhere.
template <typename AnyText>
bool ToWideText(const AnyText& text, std::wstring& wide) {
    if constexpr (std::is_same_v<AnyText, std::string>) {
        return wm::ToWide(text, wide);
    } else {
        wide = text;
        return true;
    }
}

template <typename AnyText>
bool FromWideText(const std::wstring& wide, AnyText& text) {
    if constexpr (std::is_same_v<AnyText, std::string>) {
        return wm::ToUtf8(wide, text);
    } else {
        text = wide;
        return true;
    }
}

template <typename WideTexts>
HRESULT AddTexts(const WideTexts& wideTexts, std::set<Text>& out) {
    for (const std::wstring& wide : wideTexts) {
        Text text;
        if (!FromWideText(wide, text))
            return hr::unexpected;
        out.insert(std::move(text));
    }
    return hr::ok;
}

// Longer than any path of Windows, and than any expression that would be compiled.
constexpr std::size_t longestExpanded = 0x10000;
constexpr std::uint64_t stepsToExpand = 30'000, stepsToAdd = 500;

// Counts the work of expanding, unless there is too much of it to be worth it.
bool StandsForItself(const Text& path, std::set<Text>& out) {
    Spend(EndWatch::OfThread(), stepsToExpand);
    if (path.size() <= longestExpanded)
        return false;
    out.insert(path);
    return true;
}

class Expander final : public IPathExpander {
public:
    void OnValue() override { Spend(EndWatch::OfThread(), stepsToAdd); }

    HRESULT ExpandPath(const Text& path, bool isPattern, std::set<Text>& out) override {
        if (StandsForItself(path, out))
            return hr::ok;
        return AtBoundary([&] {
            std::wstring wide;
            if (!ToWideText(path, wide))
                return hr::unexpected;
            PathSet variants;
            const HRESULT result = ExpandPathVariants(wide.c_str(), variants, isPattern);
            return Failed(result) ? result : AddTexts(variants, out);
        });
    }

    HRESULT ExpandRegistryPath(const Text& path, bool isPattern, std::set<Text>& out) override {
        if (StandsForItself(path, out))
            return hr::ok;
        return AtBoundary([&] {
            std::wstring wide;
            if (!ToWideText(path, wide))
                return hr::unexpected;
            std::vector<std::wstring> variants;
            const HRESULT result = ExpandRegistryVariants(wide.c_str(), isPattern, variants);
            return Failed(result) ? result : AddTexts(variants, out);
        });
    }
};

}  // namespace

IPathExpander& MachinePaths() noexcept {
    static Expander expander;
    return expander;
}

}  // namespace ZEL
