#include <algorithm>
#include <cwchar>
#include <mutex>
#include <new>
#include <string_view>
#include <variant>
#include <vector>

#include "common/itobbaseimpl.h"
#include "common/iutf8value.h"
#include "common/ivaluecollection.h"
#include "common/textbridge.h"
#include "host/wmlib/textmemory.h"

// The values that cross the public boundary: texts, records and lists of both. Every record and
// every result of a query is one of these texts, so a text takes one allocation, with its
// characters after the object, and is converted only when somebody needs it. Records and lists are
// few and simple.

namespace wm {

namespace {

using namespace ZEL;

// The wide characters stand right behind the object, in the same allocation, and behind them the
// UTF-8 that the text was made of. Most texts are never asked for in wide form, so that one is made
// when it is, in room that was taken with the object: asking can't fail. The room is that of the
// longest that the text can become; what stays unused goes back with the object, soon enough.
class StringValue final : public TobObject<IStringValue, IUtf8Value> {
public:
    // With one reference; null when memory runs out.
    static StringValue* Create(std::wstring_view text) noexcept {
        StringValue* const value = CreateEmpty(text.size(), 0);
        if (value == nullptr)
            return nullptr;
        std::call_once(value->widened_,
                       [&] { value->End(std::copy(text.begin(), text.end(), value->Wide())); });
        return value;
    }
    // The same; false for malformed text. It ends ahead of its first NUL, as one that is only
    // terminated would.
    static bool Create(std::string_view utf8, StringValue** out) noexcept {
        *out = nullptr;
        if (!IsUtf8(utf8))
            return false;
        utf8 = utf8.substr(0, utf8.find('\0'));
        *out = CreateEmpty(utf8.size(), utf8.size() + 1);
        if (*out == nullptr)
            return true;
        char* const kept = reinterpret_cast<char*>((*out)->Wide() + utf8.size() + 1);
        *std::copy(utf8.begin(), utf8.end(), kept) = '\0';
        (*out)->utf8_ = {kept, utf8.size()};
        return true;
    }
    // The usual form would get the object after its destructor, when its size can't be read any
    // more.
    static void operator delete(StringValue* value, std::destroying_delete_t) {
        const std::size_t bytes = value->bytes_;
        value->~StringValue();
        FreeTextMemory(value, bytes);
    }

    TobResult QueryInterface(const GUID& iid, void** out) override {
        IStringValue* const wide = this;
        IUtf8Value* const narrow = this;
        if (utf8_.data() == nullptr)
            return Answer(iid, out, {{iidStringValue, wide}});
        return Answer(iid, out, {{iidStringValue, wide}, {iidUtf8Value, narrow}});
    }
    std::size_t GetLength(int) override {
        Widen();
        return length_;
    }
    const wchar_t* GetText() override {
        Widen();
        return Wide();
    }
    const char* GetUtf8(std::size_t* bytes) override {
        *bytes = utf8_.size();
        return utf8_.data();
    }

private:
    explicit StringValue(std::size_t bytes) noexcept : bytes_(bytes) {}
    static StringValue* CreateEmpty(std::size_t wideRoom, std::size_t utf8Room) noexcept {
        std::size_t bytes = sizeof(StringValue) + (wideRoom + 1) * sizeof(wchar_t) + utf8Room;
        void* const place = AllocateTextMemory(&bytes);
        if (place == nullptr)
            return nullptr;
        auto* const value = ::new (place) StringValue(bytes);
        value->AddRef();
        return value;
    }
    wchar_t* Wide() noexcept { return reinterpret_cast<wchar_t*>(this + 1); }
    void End(wchar_t* end) noexcept {
        *end = L'\0';
        length_ = std::wcslen(Wide());
    }
    // Of threads that share the value one converts, and the others wait for it.
    void Widen() noexcept {
        std::call_once(widened_, [this] {
            if (ToWide(utf8_, Wide(), &length_))
                Wide()[length_] = L'\0';
        });
    }

    const std::size_t bytes_;  // of the whole allocation
    std::once_flag widened_;
    std::size_t length_ = 0;  // of the wide text
    std::string_view utf8_;   // none when the text was made of wide text
};

class ValueRecord final : public TobObjectOf<IValueRecord, iidValueRecord> {
public:
    std::size_t Count() override { return values_.size(); }
    IStringValue* GetText(std::size_t index) override {
        const auto* text = Find<CountedPtr<IStringValue>>(index);
        return text != nullptr ? text->Get() : nullptr;
    }
    bool GetNumber(std::size_t index, std::uint32_t* number) override {
        const auto* found = Find<std::uint32_t>(index);
        if (found == nullptr || number == nullptr)
            return false;
        *number = *found;
        return true;
    }
    bool AddText(IStringValue* text) override {
        return text != nullptr && Append(CountedPtr<IStringValue>(text));
    }
    bool AddNumber(std::uint32_t number) override { return Append(number); }

private:
    using Value = std::variant<std::uint32_t, CountedPtr<IStringValue>>;

    template <typename T>
    const T* Find(std::size_t index) const {
        return index < values_.size() ? std::get_if<T>(&values_[index]) : nullptr;
    }
    bool Append(Value value) {
        try {
            values_.push_back(std::move(value));
            return true;
        } catch (...) {
            return false;
        }
    }

    std::vector<Value> values_;
};

class ValueCollection final : public TobObjectOf<IValueCollection, iidValueCollection> {
public:
    bool Add(IStringValue* value) override {
        return value != nullptr && Append({CountedPtr<IStringValue>(value), {}});
    }
    bool AddRecord(IValueRecord* record) override {
        return record != nullptr && Append({{}, CountedPtr<IValueRecord>(record)});
    }
    std::size_t Count() override { return items_.size(); }
    void Clear() override { items_.clear(); }
    IStringValue* GetValue(std::size_t index) override {
        return index < items_.size() ? items_[index].value.Get() : nullptr;
    }
    IValueRecord* GetRecord(std::size_t index) override {
        return index < items_.size() ? items_[index].record.Get() : nullptr;
    }

private:
    struct Item {
        CountedPtr<IStringValue> value;
        CountedPtr<IValueRecord> record;
    };
    bool Append(Item item) {
        try {
            items_.push_back(std::move(item));
            return true;
        } catch (...) {
            return false;
        }
    }

    std::vector<Item> items_;
};

// A new object with one reference, or null without memory.
template <typename T>
T* Make() noexcept {
    T* const object = new (std::nothrow) T;
    if (object != nullptr)
        object->AddRef();
    return object;
}

}  // namespace

IStringValue* CreateStringValue(const wchar_t* text) noexcept {
    return text != nullptr ? StringValue::Create(text) : nullptr;
}

IStringValue* CreateStringValue(std::wstring_view text) noexcept {
    return StringValue::Create(text);
}

bool CreateStringValue(std::string_view utf8, IStringValue** out) noexcept {
    StringValue* made = nullptr;
    const bool isUtf8 = StringValue::Create(utf8, &made);
    *out = made;
    return isUtf8;
}

IValueCollection* CreateValueCollection() noexcept {
    return Make<ValueCollection>();
}

IValueRecord* CreateValueRecord() noexcept {
    return Make<ValueRecord>();
}

}  // namespace wm
