#include "records/formats/windowsjson.h"

#include <vector>

#include "records/formats/windowsevent.h"
#include "records/formats/windowsxml.h"
#include "records/jsonfields.h"

namespace zel {

namespace {

constexpr std::string_view format = "windows-json";

// The member that holds an event's XML, as senders of syslog put it; null when there is none.
SourceField* FindXml(SourceFields& fields) {
    for (SourceField& field : fields.All())
        if (field.kind == SourceField::Kind::text && field.text.starts_with('<') &&
            IsEventXml(field.text))
            return &field;
    return nullptr;
}

class WindowsJson final : public LineSource {
public:
    explicit WindowsJson(Mapper& mapper) : mapper_(mapper) {}

    void Give(const SourceLine& line) override { line_ = line; }

    bool Next(SourceItem* item) override {
        if (line_.fields == nullptr)
            return false;
        item->Clear();
        SourceFields& fields = *line_.fields;
        const std::uint64_t place = line_.number;
        line_ = {};
        if (SourceField* const xml = FindXml(fields))
            TakeXml(*xml, fields, item);
        else if (const WindowsShape* const shape = ShapeOf(fields))
            Take(*shape, fields, item);
        else
            item->problem = "no Windows event: it has no EventID and Channel";
        item->place = place;
        return true;
    }

private:
    void TakeXml(SourceField& xml, SourceFields& fields, SourceItem* item) {
        const std::string_view text = xml.text;
        xml.taken = true;
        const XmlRead read = ReadEventXml(text, &fields);
        const WindowsShape* const shape = ShapeOf(fields);
        if (shape == nullptr)
            item->problem = "XML of an event without EventID or Channel";
        else if (read == XmlRead::whole)
            MapWindowsEvent(*shape, format, fields, mapper_, item);
        else
            PassWindowsEvent(*shape, format, "the XML is cut off or damaged", fields, mapper_,
                             item);
    }

    void Take(const WindowsShape& shape, SourceFields& fields, SourceItem* item) {
        UnfoldData(fields);
        RestoreEventType(fields);
        MapWindowsEvent(shape, format, fields, mapper_, item);
    }

    // The event's data as a text of JSON or XML, or as a list of names and values.
    void UnfoldData(SourceFields& fields) {
        SourceField* const data = fields.FindWhole("EventData");
        if (data != nullptr && data->kind == SourceField::Kind::text) {
            const std::string_view text = data->text;
            const bool isXml = text.starts_with('<');
            const auto at = static_cast<std::size_t>(data - fields.All().data());
            const std::size_t before = fields.All().size();
            const bool isRead = isXml ? ReadDataXml(text, &fields) == XmlRead::whole
                                      : inner_.Read(text, &fields, "EventData.");
            fields.All()[at].taken = isRead && fields.All().size() > before;
        }
        for (const std::string_view list : {"EventData.Data", "Event.EventData.Data"})
            UnfoldList(list, fields);
    }

    // [{"@Name":"Image","#text":"..."}], as converters from XML write it.
    void UnfoldList(std::string_view name, SourceFields& fields) {
        SourceField* const list = fields.FindWhole(name);
        if (list == nullptr || list->kind != SourceField::Kind::json ||
            !inner_.Split(list->text, &items_))
            return;
        const auto at = static_cast<std::size_t>(list - fields.All().data());
        const std::string_view prefix =
            name.substr(0, name.size() - std::string_view("Data").size());
        bool isWhole = true;
        for (const std::string& item : items_) {
            item_.Clear();
            isWhole = inner_.Read(item, &item_) && AddNamed(prefix, fields) && isWhole;
        }
        fields.All()[at].taken = isWhole;
    }

    bool AddNamed(std::string_view prefix, SourceFields& fields) {
        const SourceField* const name = item_.FindPresent("@Name|Name|#attributes.Name|-Name");
        const SourceField* const value = item_.FindPresent("#text|$text|Value|text|_");
        if (name != nullptr)
            fields.AddText(fields.Keep(prefix, name->text),
                           value != nullptr ? fields.Keep(value->text) : "");
        return name != nullptr;
    }

    // NXLog has a member EventType of its own, which takes the place of the one that tells what was
    // done to a registry key. The rendered text still has it.
    static void RestoreEventType(SourceFields& fields) {
        constexpr std::string_view mark = "EventType: ";
        SourceField* const type = fields.FindWhole("EventType");
        const SourceField* const message = fields.FindWhole("Message");
        if (type == nullptr || message == nullptr)
            return;
        const std::string_view text = message->text;
        const std::size_t found = text.find(mark);
        if (found == text.npos || (found > 0 && text[found - 1] != '\n'))
            return;
        const std::size_t begin = found + mark.size();
        const std::size_t end = std::min(text.find_first_of("\r\n", begin), text.size());
        const std::string_view collectors = type->text;
        type->text = text.substr(begin, end - begin);
        fields.AddText("CollectorEventType", collectors);
    }

    Mapper& mapper_;
    SourceLine line_;
    JsonFields inner_;
    SourceFields item_;
    std::vector<std::string> items_;
};

}  // namespace

namespace {

// Of Sysmon's events winlogbeat's module moves the process, and some of the rest, to fields of the
// Elastic Common Schema. What is left may fit a rule, but would be a record without an actor.
bool HasLostItsProcess(SourceFields& fields) {
    const SourceField* const channel = fields.FindWhole("winlog.channel");
    return channel != nullptr && HasNoCase(channel->text, "sysmon") &&
           fields.Has("process.executable") &&
           (fields.Has("ecs.version") || fields.Has("event.category")) &&
           !fields.Has("winlog.event_data.Image") && !fields.Has("winlog.event_data.SourceImage");
}

}  // namespace

// An event that a shipper has taken apart into fields of its own is better read by those, unless
// what Windows wrote is still there.
bool KnowsWindowsJson(const SourceLine& line) {
    if (line.fields == nullptr || HasLostItsProcess(*line.fields))
        return false;
    if (const WindowsShape* const shape = ShapeOf(*line.fields)) {
        if (!line.fields->Has("event.category") || HasWindowsRule(*shape, *line.fields))
            return true;
        line.fields->SetScope({});
        return false;
    }
    return FindXml(*line.fields) != nullptr;
}

std::unique_ptr<LineSource> MakeWindowsJson(Mapper& mapper) {
    return std::make_unique<WindowsJson>(mapper);
}

}  // namespace zel
