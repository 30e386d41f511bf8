#include "zelstore/rowfilter.h"

#include <memory>
#include <string>

#include "common/boundary.h"
#include "common/itobbaseimpl.h"
#include "common/textbridge.h"
#include "common/valuetext.h"
#include "zelstore/query/keytester.h"

namespace ZEL {

namespace {

class RowFilter final : public TobObjectOf<IRowFilter, iidRowFilter> {
public:
    HRESULT Read(const std::string& document) { return tester_.Read(document); }

    HRESULT Passes(IStringValue* key, bool* passes) override {
        if (passes == nullptr)
            return hr::invalidArgument;
        *passes = false;
        if (key == nullptr)
            return hr::invalidArgument;
        return AtBoundary([&] {
            const auto text = wm::Utf8Of(*key, buffer_);
            *passes = text && tester_.Passes(*text);
            return hr::ok;
        });
    }

private:
    KeyTester tester_;
    std::string buffer_;
};

}  // namespace

HRESULT MakeRowFilter(IStringValue* document, IRowFilter** filter) noexcept {
    if (filter == nullptr || document == nullptr || document->GetLength(0) == 0)
        return hr::invalidArgument;
    return AtBoundary([&] {
        std::string text;
        if (!wm::ToUtf8({document->GetText(), document->GetLength(0)}, text))
            return hr::unexpected;
        auto made = std::make_unique<RowFilter>();
        const HRESULT result = made->Read(text);
        if (Succeeded(result)) {
            made->AddRef();
            *filter = made.release();
        }
        return result;
    });
}

}  // namespace ZEL
