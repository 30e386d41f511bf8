#include "sql/eventstable.h"

#include <charconv>
#include <optional>
#include <vector>

#include "common/neverdestroyed.h"
#include "common/valuetext.h"
#include "connection/resultwords.h"
#include "records/jsonfields.h"
#include "records/recordreader.h"
#include "sql/eventplan.h"
#include "sql/eventwalk.h"

// Rows of the store's answer. An event's text is read only when a column is asked for that takes
// reading, and its key is made only when that is asked for; SQLite asks for the columns that a
// statement needs, row by row.

namespace zel {

namespace {

// Takes events of one walk after the other, and tells SQLite how it went.
class WalkCursor : public TableCursor {
public:
    using TableCursor::TableCursor;

    int Filter(const std::string& plan, std::span<sqlite3_value*> values) override {
        SqlConnection& connection = *Table().connection;
        walk_.reset();  // two at a time would only be in each other's way
        auto question = QuestionFor(plan, values, connection.Database(), connection.Times(),
                                    JoinsEnrichments());
        atEnd_ = !question;
        if (atEnd_)
            return SQLITE_OK;
        walk_ = std::make_unique<EventWalk>(Table().store, std::move(*question));
        return Next();
    }
    bool AtEnd() const override { return atEnd_; }
    sqlite3_int64 RowId() const override { return Table().connection->RowNumber(DistinctPart()); }

protected:
    virtual bool JoinsEnrichments() const { return false; }
    std::string_view Event() const noexcept { return event_.text; }
    std::string_view Host() const noexcept { return event_.host; }
    // What tells the event from all others; good until the next call.
    std::string_view DistinctPart() const {
        const std::string_view own = EventWalk::DistinctPart(event_.text);
        return event_.host.empty() ? own : distinct_.assign(event_.host).append(own);
    }

    // Goes on to the next event; at the end AtEnd tells so.
    int NextEvent() {
        EventWalk::Step step;
        while ((step = walk_->Next(&event_)) == EventWalk::Step::notYet)
            if (Table().connection->IsInterrupted())
                return SQLITE_INTERRUPT;
        atEnd_ = step == EventWalk::Step::end;
        if (!atEnd_ || Succeeded(walk_->Result()))
            return SQLITE_OK;
        return Fail(SQLITE_IOERR, "the store's answer is not whole: " +
                                      Describe(static_cast<std::int32_t>(walk_->Result())));
    }

    // The one that came with the event, or that the store makes of its text; null for a text that
    // has none.
    void PutKey(sqlite3_context* context) const {
        if (!event_.key.empty())
            return ResultText(context, event_.key);
        const auto text = wm::ToValue(event_.text);
        ZEL::CountedPtr<ZEL::IStringValue> key;
        std::string converted;
        if (!text ||
            Failed(Table().store->Store().MakeKey(text.Get(), ZEL::keyKindEvent, key.Receive())))
            return;
        if (const auto utf8 = wm::Utf8Of(*key, converted))
            ResultText(context, *utf8);
    }

private:
    std::unique_ptr<EventWalk> walk_;
    EventWalk::Event event_;
    mutable std::string distinct_;
    bool atEnd_ = true;
};

void PutValue(sqlite3_context* context, const zel::Column& column, std::string_view text) {
    std::int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, number);
    if (column.type == ColumnType::number && read.ec == std::errc() && read.ptr == end)
        sqlite3_result_int64(context, number);
    else
        ResultText(context, text);
}

class EventsCursor final : public WalkCursor {
public:
    using WalkCursor::WalkCursor;

    int Next() override {
        isRead_ = false;
        return NextEvent();
    }
    void Column(sqlite3_context* context, int number) override {
        const zel::Column& column = Columns()[static_cast<std::size_t>(number)];
        if (column.name == "key")
            PutKey(context);
        else if (column.name == "host")
            PutHost(context);
        else if (column.type == ColumnType::json)
            ResultText(context, Event());
        else if (const auto value = ValueOf(column))
            PutValue(context, column, *value);
    }

private:
    void PutHost(sqlite3_context* context) const {
        if (!Host().empty())
            ResultText(context, Host());
    }
    std::optional<std::string_view> ValueOf(const zel::Column& column) {
        if (!isRead_)
            isGood_ = reader_.Read(Event());
        isRead_ = true;
        return isGood_ ? reader_.Value(column) : std::nullopt;
    }

    RecordReader reader_;
    bool isRead_ = false, isGood_ = false;
};

// A row for each enrichment that the store has joined to an event.
class EnrichmentsCursor final : public WalkCursor {
public:
    using WalkCursor::WalkCursor;

    int Next() override {
        ++at_;
        while (at_ >= enrichments_.size()) {
            at_ = 0;
            enrichments_.clear();
            const int result = NextEvent();
            if (result != SQLITE_OK || AtEnd())
                return result;
            Split();
        }
        return SQLITE_OK;
    }
    sqlite3_int64 RowId() const override {
        return Table().connection->RowNumber(std::to_string(at_).append(DistinctPart()));
    }
    void Column(sqlite3_context* context, int number) override {
        switch (number) {
            case 0:
                if (const auto time = TimeOf())
                    ResultText(context, *time);
                return;
            case 1:
                return PutKey(context);
            case 2:
                return sqlite3_result_int64(context, static_cast<sqlite3_int64>(at_) + 1);
            default:
                return ResultText(context, enrichments_[at_]);
        }
    }

private:
    bool JoinsEnrichments() const override { return true; }

    // The store puts them ahead of the event's last brace. An event may have the same words in
    // itself, further within: what stands ahead of them has to be an event.
    void Split() {
        constexpr std::string_view name = ",\"enrichments\":";
        const std::string_view event = Event();
        const std::size_t end = event.rfind('}');
        for (std::size_t at = event.find(name); at != event.npos; at = event.find(name, at + 1)) {
            SourceFields fields;
            const std::size_t start = at + name.size();
            if (json_.Read(std::string(event.substr(0, at)).append("}"), &fields) &&
                json_.Split(event.substr(start, end - start), &enrichments_))
                return;
        }
    }
    std::optional<std::string_view> TimeOf() {
        static const zel::Column& time = *FindColumn("time");
        return reader_.Read(Event()) ? reader_.Value(time) : std::nullopt;
    }

    JsonFields json_;
    RecordReader reader_;
    std::vector<std::string> enrichments_;
    std::size_t at_ = 0;
};

std::string_view DeclaredType(ColumnType type) {
    return type == ColumnType::number ? " INTEGER" : " TEXT";
}

template <typename Cursor>
class WalkTable final : public TableKind {
public:
    explicit WalkTable(std::string columns) : columns_(std::move(columns)) {}
    std::string Columns() const override { return columns_; }
    int Plan(VirtualTable& table, sqlite3_index_info& info, std::string* plan) const override {
        return PlanEvents(info, std::is_same_v<Cursor, EventsCursor>, *table.store, plan);
    }
    std::unique_ptr<TableCursor> Open(VirtualTable& table) const override {
        return std::make_unique<Cursor>(table);
    }

private:
    const std::string columns_;
};

std::string EventColumns() {
    std::string columns;
    for (const zel::Column& column : Columns()) {
        columns.append(columns.empty() ? "\"" : ", \"").append(column.name).append("\"");
        columns.append(DeclaredType(column.type));
        if (column.type == ColumnType::time)
            columns.append(" COLLATE ").append(TimeOrder::name);
    }
    return columns;
}

}  // namespace

const TableKind& EventsTable() {
    static const wm::NeverDestroyed<WalkTable<EventsCursor>> table(EventColumns());
    return *table;
}

const TableKind& EnrichmentsTable() {
    static const wm::NeverDestroyed<WalkTable<EnrichmentsCursor>> table(
        std::string("time TEXT COLLATE ") + TimeOrder::name +
        ", \"key\" TEXT, number INTEGER, enrichment TEXT");
    return *table;
}

}  // namespace zel
