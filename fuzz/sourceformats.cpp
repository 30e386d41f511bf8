#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz.h"
#include "records/eventtime.h"
#include "records/formats/auditline.h"
#include "records/formats/formats.h"
#include "records/formats/ocsf.h"
#include "records/jsonfields.h"

// Events of other sources, line by line. Input: the name of a format; then the lines. Whatever they
// are, each line of JSON comes out as a record, as passed over or as refused, and what comes out
// does not change when it is read again. A record is JSON with a time and an action; written in the
// common schema and read again, it tells the same event.

namespace {

using namespace zel;
using ZEL::fuzz::Check;
using ZEL::fuzz::Input;

using Lines = std::vector<std::string>;

// What records are told apart by here, without what the schema has other words for.
Lines FactsOf(const std::string& record) {
    JsonFields json;
    SourceFields fields;
    Check(json.Read(record, &fields), {"a record that is no JSON", json.Error(), record});
    Lines facts;
    for (const std::string_view name :
         {"artifacts.target.object_type", "action", "begin_time.value", "seq_num"}) {
        facts.emplace_back(fields.Take(name));
    }
    Check(ParseEventTime(facts[2]).has_value(), {"a time of another form", record});
    return facts;
}

class Reading {
public:
    Reading(std::string_view format, bool keepsAll)
        : mapper_({true, keepsAll, false}), source_(FindFormat(format)->makeReader(mapper_)) {}

    Lines Read(const Lines& lines) {
        std::uint64_t number = 0;
        for (const std::string& text : lines) {
            fields_.Clear();
            SourceLine line;
            line.text = text;
            line.number = ++number;
            line.fields = json_.Read(text, &fields_) ? &fields_ : nullptr;
            source_->Give(line);
            Drain();
        }
        source_->End();
        Drain();
        return std::move(items_);
    }

private:
    void Drain() {
        while (source_->Next(&item_)) {
            const bool hasRecord = item_.fate == EventFate::record || item_.isKept;
            Check(hasRecord == !item_.record.empty(), {"a record or none", item_.record});
            Check(item_.fate != EventFate::refused || !item_.problem.empty(),
                  {"refused for nothing"});
            Check(item_.place != 0, {"an event without a place"});
            items_.push_back(hasRecord ? item_.record : std::string(item_.problem) + item_.event);
        }
    }

    Mapper mapper_;
    std::unique_ptr<LineSource> source_;
    JsonFields json_;
    SourceFields fields_;
    SourceItem item_;
    Lines items_;
};

void CheckOcsf(const std::string& record) {
    static OcsfWriter writer;
    std::string event;
    Check(writer.Write(record, &event), {"not written", writer.Error(), record});
    const Lines again = Reading("ocsf", false).Read({event});
    Check(again.size() == 1, {"not one event", event});
    Check(FactsOf(again[0]) == FactsOf(record), {"another event", record, event, again[0]});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const std::string format = input.Line();
    const Format* const known = FindFormat(format);
    if (known == nullptr || known->makeReader == nullptr)
        return 0;
    Lines lines;
    // Lines reach a reader as UTF-8.
    while (!input.Empty())
        lines.push_back(AuditBytesToText(input.Line(), ' '));
    const Lines items = Reading(format, true).Read(lines);
    Check(items == Reading(format, true).Read(lines), {"read twice, told twice"});
    for (const std::string& item : items) {
        if (item.starts_with('{')) {
            FactsOf(item);
            CheckOcsf(item);
        }
    }
    return 0;
}
