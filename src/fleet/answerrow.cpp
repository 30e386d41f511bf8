#include "fleet/answerrow.h"

#include <simdjson.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <type_traits>

#include "fleet/fleettable.h"
#include "fleet/sqltext.h"
#include "zelstore/query/resulttext.h"

// What a server answers is not trusted: a line is a row when it has all that a row has, each of its
// kind. Numbers of 64 bits come as texts from some servers.

namespace zel::fleet {

namespace {

namespace dom = simdjson::dom;

}  // namespace

// Reads one line as a JSON object, whose members go to `take` by name; that gives false for one
// that it can't use. The library's parser of whole documents is the one that uses what the
// processor has.
struct LineParser {
    template <typename Take>
    bool Read(std::string_view line, Take&& take) {
        text_.assign(line);
        text_.append(simdjson::SIMDJSON_PADDING, ' ');
        dom::object object;
        if (parser_.parse(text_.data(), line.size(), false).get_object().get(object) !=
            simdjson::SUCCESS)
            return false;
        return std::all_of(object.begin(), object.end(), [&](const dom::key_value_pair& each) {
            return take(each.key, each.value);
        });
    }

    dom::parser parser_;
    std::string text_;
};

namespace {

bool TakeText(const dom::element& value, std::string* text) {
    std::string_view view;
    if (value.get_string().get(view) != simdjson::SUCCESS)
        return false;
    text->assign(view);
    return true;
}

template <typename Number>
bool TakeNumber(const dom::element& value, Number* number) {
    static_assert(std::is_unsigned_v<Number>);
    std::uint64_t wide = 0;
    std::string_view digits;
    if (value.get_string().get(digits) == simdjson::SUCCESS) {
        const char* const end = digits.data() + digits.size();
        const auto read = std::from_chars(digits.data(), end, wide);
        if (read.ec != std::errc() || read.ptr != end)
            return false;
    } else if (value.get_uint64().get(wide) != simdjson::SUCCESS) {
        return false;
    }
    *number = static_cast<Number>(wide);
    return wide <= std::numeric_limits<Number>::max();
}

}  // namespace

FleetRowReader::FleetRowReader() : parser_(std::make_unique<LineParser>()) {}
FleetRowReader::~FleetRowReader() = default;

bool FleetRowReader::Read(std::string_view line, FleetRow* row) {
    bool hasEvent = false, hasKey = false, hasHost = false;
    row->part = 0;
    const bool isRead = parser_->Read(line, [&](std::string_view name, const dom::element& value) {
        if (name == "event")
            return hasEvent = TakeText(value, &row->event);
        if (name == "key")
            return hasKey = TakeText(value, &row->key);
        if (name == "host")
            return hasHost = TakeText(value, &row->host);
        if (name == "begin_time")
            return TakeText(value, &row->beginTime);
        if (name == "sequence")
            return TakeNumber(value, &row->sequence);
        if (name == "receive_ms")
            return TakeNumber(value, &row->receiveMs);
        if (name == "receive_no")
            return TakeNumber(value, &row->receiveNo);
        return name == "part" && TakeNumber(value, &row->part);
    });
    return isRead && hasEvent && hasKey && hasHost;
}

EnrichmentJoin::EnrichmentJoin() : parser_(std::make_unique<LineParser>()) {}
EnrichmentJoin::~EnrichmentJoin() = default;

// A statement stays well below what servers read of one.
std::string EnrichmentJoin::Statement(std::span<const FleetRow> rows, std::size_t* taken) const {
    constexpr std::size_t mostRows = 500, mostBytes = 150'000;
    std::string keys, first, last;
    std::size_t count = 0;
    for (const FleetRow& row : rows) {
        if (count == mostRows || (count > 0 && keys.size() + row.key.size() > mostBytes))
            break;
        first = count == 0 ? row.beginTime : std::min(first, row.beginTime);
        last = std::max(last, row.beginTime);
        keys.append(count == 0 ? "(" : ", (");
        AppendSqlText(keys, row.host);
        keys += ", ";
        AppendSqlText(keys, row.key);
        keys += ')';
        ++count;
    }
    *taken = count;
    return "SELECT host, base_key, key, live, text FROM " + std::string(enrichmentsTable) +
           " WHERE substring(begin_time, 1, 13) >= " + SqlText(first.substr(0, 13)) +
           " AND substring(begin_time, 1, 13) <= " + SqlText(last.substr(0, 13)) +
           " AND (host, base_key) IN (" + keys +
           ") ORDER BY host, key, sent_ms DESC LIMIT 1 BY host, key FORMAT JSONEachRow";
}

bool EnrichmentJoin::Add(std::string_view line) {
    std::string host, baseKey, key, text;
    std::uint32_t live = 0;
    const bool isRead = parser_->Read(line, [&](std::string_view name, const dom::element& value) {
        if (name == "live")
            return TakeNumber(value, &live);
        std::string* const to = name == "host"       ? &host
                                : name == "base_key" ? &baseKey
                                : name == "key"      ? &key
                                : name == "text"     ? &text
                                                     : nullptr;
        return to != nullptr && TakeText(value, to);
    });
    if (!isRead || key.empty())
        return false;
    Enrichments& all = rows_[{std::move(host), std::move(baseKey)}];
    all.hasLive = all.hasLive || live != 0;
    all.texts[std::move(key)] = std::move(text);
    return true;
}

bool EnrichmentJoin::HasLive(const FleetRow& row) const {
    const auto found = rows_.find({row.host, row.key});
    return found != rows_.end() && found->second.hasLive;
}

std::string EnrichmentJoin::ArrayOf(const FleetRow& row) const {
    std::string array;
    const auto found = rows_.find({row.host, row.key});
    if (found == rows_.end())
        return array;
    for (const auto& [key, text] : found->second.texts)
        array.append(array.empty() ? "[" : ",").append(text);
    return array + "]";
}

std::string ResultText(const FleetRow& row, std::string_view enrichments) {
    std::string text = row.event;
    if (enrichments.size() > 2)
        ZEL::AppendEnrichments(text, {std::string(enrichments.substr(1, enrichments.size() - 2))});
    return text;
}

std::string ReceiptText(const FleetRow& row) {
    std::string text = row.event;
    ZEL::SpliceEnrichedData(text, "null");
    return text;
}

}  // namespace zel::fleet
