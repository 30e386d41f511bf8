#include "zelstore/keymaker.h"

#include <cwchar>

#include "common/boundary.h"
#include "common/countedptr.h"
#include "common/valuetext.h"
#include "zelstore/keys/keyformat.h"
#include "zelstore/schema/eventfields.h"
#include "zelstore/schema/fastrecord.h"

// Two roads to the key of an event. A record that comes as JSON is read, its fields are taken as a
// query would ask for them, and the key is put together from the first value of each. An event that
// comes as numbered properties goes straight into the text. The roads differ on purpose, in which
// optional fields they write and in what order: readers of keys go by names.
//
// The first road is the busiest of the store. Nearly every record is read by the fast reader; where
// that one is in doubt the JSON library reads, and has the last word about what is no record. It
// takes no lock: all that it needs is in one Work,
// of which the maker keeps one spare. Who finds it taken makes his own, and the last to come back
// leaves his as the spare. A Work keeps the memory of the record that it read last, so that a
// record like the one before costs no allocation in the schema; what a large record took is let go.

namespace ZEL {

namespace {

// The values of a key, but for those two that the record itself tells.
void TakeFields(const Schema::RecordFields& fields, KeyValues* values) {
    for (const KeyField field : {KeyField::objectType, KeyField::action})
        (*values)[IndexOf(field)] = fields.Find(field);
    for (const KeyField field : optionalKeyFields)
        (*values)[IndexOf(field)] = fields.Find(field);
}

}  // namespace

// All that one record needs on its way. `fields` and `key` hold what the last Run left.
struct EventKeyMaker::Work {
    // From a record's text to `key`. The order of the tests is that of the result codes: what can't
    // be read comes first, then a missing time, then what is missing of target and action.
    HRESULT Run(std::string_view json);

    Schema::Event event;
    Schema::RecordFields fields;
    std::string key;
};

HRESULT EventKeyMaker::Work::Run(std::string_view json) {
    const bool isRead = Schema::ReadRecordFast(json, event);
    if (!isRead)
        event.FromJson(web::json::value::parse(Schema::FromUtf8(json)));
    // Of the record before.
    fields.Clear();
    const HRESULT result = Schema::ExtractRecordFields(
        event, isRead ? Schema::TextCheck::done : Schema::TextCheck::needed, fields);
    if (Failed(result))
        return result;
    if (!event.begin_time)
        return hr::invalidArgument;
    std::string buffer;
    const auto time = Schema::ToUtf8(event.begin_time->value, buffer);
    if (!time)
        return hr::outOfMemory;
    const std::string sequence = TenDigits(event.seq_num);
    KeyValues values;
    values[IndexOf(KeyField::beginTime)] = *time;
    values[IndexOf(KeyField::sequence)] = sequence;
    TakeFields(fields, &values);
    if (!values[IndexOf(KeyField::objectType)] || !values[IndexOf(KeyField::action)])
        return hr::fail;
    MakePrimaryKey(values, &key);
    return hr::ok;
}

EventKeyMaker::EventKeyMaker() noexcept = default;

EventKeyMaker::~EventKeyMaker() {
    delete spare_.load();
}

std::unique_ptr<EventKeyMaker::Work> EventKeyMaker::Begin() {
    std::unique_ptr<Work> work(spare_.exchange(nullptr));
    if (work == nullptr)
        work = std::make_unique<Work>();
    return work;
}

void EventKeyMaker::End(std::unique_ptr<Work> work, std::size_t recordBytes) noexcept {
    constexpr std::size_t largestKept = 8192;  // a larger record must not hold its memory on
    if (recordBytes > largestKept)
        return;
    // Two may come back at once; the one that was the spare goes.
    const std::unique_ptr<Work> former(spare_.exchange(work.get()));
    static_cast<void>(work.release());  // it is the spare now
}

// Failures of the record are told by an inner boundary, so that the Work comes back whatever
// happened.
template <typename Give>
HRESULT EventKeyMaker::MakeAndGive(std::string_view json, Give&& give) {
    std::unique_ptr<Work> work = Begin();
    const HRESULT result = AtBoundary([&] {
        const HRESULT made = work->Run(json);
        return Failed(made) ? made : give(work->key);
    });
    End(std::move(work), json.size());
    return result;
}

HRESULT EventKeyMaker::Make(IStringValue& jsonText, IStringValue** key) noexcept {
    return AtBoundary([&] {
        std::string buffer;
        const auto json = wm::Utf8Of(jsonText, buffer);
        if (!json)
            return hr::unexpected;
        return MakeAndGive(*json, [&](const std::string& made) {
            const bool isMade = wm::CreateStringValue(std::string_view(made), key);
            return isMade && *key != nullptr ? hr::ok : hr::outOfMemory;
        });
    });
}

HRESULT EventKeyMaker::Make(std::string_view jsonText, std::string* key) noexcept {
    return AtBoundary([&] {
        return MakeAndGive(jsonText, [&](const std::string& made) {
            key->assign(made);
            return hr::ok;
        });
    });
}

namespace {

// Numbers of an event's properties, by the fields of a key in its order.
struct PropertyRow {
    KeyField field;
    std::uint8_t number;
    bool required;
    enum Kind : std::uint8_t { text, tenDigits, decimal, guid } kind;
};

// This order is part of the stored form: the optional fields of these keys have always stood
// otherwise than in keys of records.
constexpr PropertyRow propertyRows[] = {
    {KeyField::beginTime, 3, true, PropertyRow::text},
    {KeyField::sequence, 4, true, PropertyRow::tenDigits},
    {KeyField::objectType, 5, true, PropertyRow::text},
    {KeyField::action, 6, true, PropertyRow::text},
    {KeyField::actorHash, 9, false, PropertyRow::text},
    {KeyField::actorPathName, 10, false, PropertyRow::text},
    {KeyField::targetHash, 12, false, PropertyRow::text},
    {KeyField::targetPathName, 13, false, PropertyRow::text},
    {KeyField::targetSourceIp, 16, false, PropertyRow::text},
    {KeyField::targetDestinationIp, 17, false, PropertyRow::text},
    {KeyField::targetTypeId, 24, false, PropertyRow::decimal},
    {KeyField::correlationUid, 7, false, PropertyRow::text},
    {KeyField::actorUid, 8, false, PropertyRow::guid},
    {KeyField::targetUrlText, 25, false, PropertyRow::text},
};

// Upper case, no braces.
std::wstring GuidText(const GUID& guid) {
    wchar_t text[40];
    const std::uint8_t* const b = guid.Data4;
    std::swprintf(text, sizeof(text) / sizeof(text[0]),
                  L"%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X", guid.Data1, guid.Data2,
                  guid.Data3, b[0], b[1], b[2], b[3], b[4], b[5], b[6], b[7]);
    return text;
}

// False when the event has no such property.
bool PropertyText(IEventProperties& event, const PropertyRow& row, std::wstring* out) {
    if (row.kind == PropertyRow::text) {
        CountedPtr<IStringValue> text;
        if (!event.GetText(row.number, text.Receive()) || !text)
            return false;
        out->assign(text->GetText(), text->GetLength(0));
        return true;
    }
    if (row.kind == PropertyRow::guid) {
        GUID guid;
        if (!event.GetGuid(row.number, &guid))
            return false;
        *out = GuidText(guid);
        return true;
    }
    std::uint32_t number = 0;
    if (!event.GetNumber(row.number, &number))
        return false;
    const std::string digits =
        row.kind == PropertyRow::tenDigits ? TenDigits(number) : std::to_string(number);
    out->assign(digits.begin(), digits.end());
    return true;
}

}  // namespace

HRESULT MakePropertyKey(IEventProperties* event, std::wstring* key) noexcept {
    if (event == nullptr)
        return hr::invalidArgument;
    return AtBoundary([&] {
        // Handed over at the end alone: a required property may be missing after others were found.
        std::wstring made(1, static_cast<wchar_t>(primaryPrefix));
        for (const PropertyRow& row : propertyRows) {
            std::wstring text;
            if (PropertyText(*event, row, &text))
                made.append(RowOf(row.field).wideMark).append(text);
            else if (row.required)
                return hr::invalidArgument;
        }
        *key = std::move(made);
        return hr::ok;
    });
}

}  // namespace ZEL
