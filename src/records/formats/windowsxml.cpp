#include "records/formats/windowsxml.h"

#include <algorithm>
#include <cstring>
#include <pugixml.hpp>

#include "records/formats/windowsevent.h"

// An event's XML is read in place, in a copy that the fields keep, so that most values are views
// and nothing is allocated for them. The names are made of the elements' and attributes' names;
// those of the event's data are what their attribute Name says.

namespace zel {

namespace {

constexpr int deepest = 16;
constexpr unsigned parseOptions = pugi::parse_default | pugi::parse_ws_pcdata_single;

class XmlWalk {
public:
    explicit XmlWalk(SourceFields* fields) : fields_(*fields) {}

    // <EventData>: each <Data> has its own name; those without one are values of one field.
    void Data(const pugi::xml_node& parent) {
        SourceField::Part part = SourceField::Part::first;
        for (const pugi::xml_node& data : parent.children()) {
            if (data.type() != pugi::node_element)
                continue;
            const std::string_view name = data.attribute("Name").value();
            if (!name.empty()) {
                fields_.AddText(fields_.Keep("EventData.", name), data.child_value());
            } else if (std::strcmp(data.name(), "Data") == 0) {
                fields_.AddText("EventData.Data", data.child_value()).part = part;
                part = SourceField::Part::further;
            } else {
                Element(data, "EventData.", 1);
            }
        }
    }

    // All else: attributes and texts under the names of the elements around them.
    void Element(const pugi::xml_node& element, std::string_view prefix, int depth) {
        const std::string_view name = fields_.Keep(prefix, element.name());
        const std::string_view below = fields_.Keep(name, ".");
        for (const pugi::xml_attribute& attribute : element.attributes())
            fields_.AddText(fields_.Keep(below, attribute.name()), attribute.value());
        bool hasElements = false;
        for (const pugi::xml_node& child : element.children()) {
            if (child.type() != pugi::node_element || depth == deepest)
                continue;
            hasElements = true;
            Element(child, below, depth + 1);
        }
        const std::string_view text = element.child_value();
        if (!hasElements && !text.empty())
            fields_.AddText(name, text);
    }

private:
    SourceFields& fields_;
};

bool Load(std::string_view xml, SourceFields* fields, pugi::xml_document* document) {
    char* const copy = fields->Room(xml.size());
    std::copy(xml.begin(), xml.end(), copy);
    return document->load_buffer_inplace(copy, xml.size(), parseOptions, pugi::encoding_utf8);
}

constexpr std::string_view eventEnd = "</Event>";

// Where an <Event> element begins in a text; npos when there is none.
std::size_t FindEvent(std::string_view text) {
    constexpr std::string_view begin = "<Event";
    for (std::size_t at = text.find(begin); at != text.npos; at = text.find(begin, at + 1)) {
        const char next = at + begin.size() < text.size() ? text[at + begin.size()] : ' ';
        if (next == '>' || next == ' ' || next == '\t' || next == '\r' || next == '\n')
            return at;
    }
    return text.npos;
}

class WindowsXml final : public LineSource {
public:
    explicit WindowsXml(Mapper& mapper) : mapper_(mapper) {}

    void Give(const SourceLine& line) override {
        if (isOpen_)
            text_.append("\n").append(line.text);
        else
            Begin(line.text);
        if (!isOpen_)
            number_ = line.number;
        lineNumber_ = line.number;
    }

    bool Wants() const noexcept override { return isOpen_; }

    std::uint64_t HeldFrom() const noexcept override { return isOpen_ ? number_ : 0; }

    void End() override { hasEnded_ = true; }

    bool Next(SourceItem* item) override {
        const std::string_view text = text_;
        const std::size_t found = isOpen_ ? 0 : FindEvent(text.substr(at_));
        if (found == text.npos) {
            Begin({});
            return false;
        }
        const std::size_t begin = at_ + found;
        const std::size_t end = text.find(eventEnd, std::max(begin, searched_));
        if (end == text.npos && !hasEnded_ && text.size() - begin < longestEvent)
            return Keep(begin);
        at_ = end == text.npos ? text.size() : end + eventEnd.size();
        Take(text.substr(begin, at_ - begin), item);
        searched_ = at_;
        isOpen_ = false;
        number_ = lineNumber_;
        return true;
    }

private:
    static constexpr std::size_t longestEvent = 4U << 20;  // bytes

    void Begin(std::string_view text) {
        text_ = text;
        at_ = searched_ = 0;
        isOpen_ = false;
    }
    // An event begins there, and further lines are its. What was searched for its end need not be
    // searched again, but for the end's first characters.
    bool Keep(std::size_t begin) {
        text_.erase(0, begin);
        at_ = 0;
        searched_ = text_.size() - std::min(text_.size(), eventEnd.size());
        isOpen_ = true;
        return false;
    }

    // An event of which only a part is there must not be taken for one that has no more to tell.
    void Take(std::string_view xml, SourceItem* item) {
        fields_.Clear();
        const XmlRead read = ReadEventXml(xml, &fields_);
        const WindowsShape* const shape = ShapeOf(fields_);
        item->Clear();
        if (shape == nullptr)
            item->problem = "XML of an event without EventID or Channel";
        else if (read == XmlRead::whole)
            MapWindowsEvent(*shape, "windows-xml", fields_, mapper_, item);
        else
            PassWindowsEvent(*shape, "windows-xml", "the XML is cut off or damaged", fields_,
                             mapper_, item);
        item->place = number_;
    }

    Mapper& mapper_;
    SourceFields fields_;
    std::string text_;
    std::size_t at_ = 0;        // what is ahead of it was read
    std::size_t searched_ = 0;  // no event ends ahead of it
    std::uint64_t number_ = 0;
    std::uint64_t lineNumber_ = 0;
    bool isOpen_ = false;
    bool hasEnded_ = false;
};

}  // namespace

XmlRead ReadEventXml(std::string_view xml, SourceFields* fields) {
    pugi::xml_document document;
    const bool isWhole = Load(xml, fields, &document);
    const pugi::xml_node event = document.child("Event");
    if (!event)
        return XmlRead::none;
    XmlWalk walk(fields);
    for (const pugi::xml_node& part : event.children()) {
        if (std::strcmp(part.name(), "EventData") == 0)
            walk.Data(part);
        else if (part.type() == pugi::node_element)
            walk.Element(part, "", 0);
    }
    return isWhole ? XmlRead::whole : XmlRead::cutOff;
}

XmlRead ReadDataXml(std::string_view xml, SourceFields* fields) {
    pugi::xml_document document;
    const bool isWhole = Load(xml, fields, &document);
    pugi::xml_node parent = document;
    while (const pugi::xml_node child = parent.first_child()) {
        if (std::strcmp(child.name(), "Data") == 0)
            break;
        parent = child;
    }
    XmlWalk(fields).Data(parent);
    return isWhole ? XmlRead::whole : XmlRead::cutOff;
}

bool IsEventXml(std::string_view text) {
    return FindEvent(text) == 0;
}

// What an export puts around its events is of the format too, and gives none.
bool KnowsWindowsXml(const SourceLine& line) {
    const std::string_view text =
        line.text.substr(std::min(line.text.find_first_not_of(" \t"), line.text.size()));
    return line.fields == nullptr && (FindEvent(text) != text.npos || text.starts_with("<?xml") ||
                                      text.starts_with("<Events") || text.starts_with("</Events"));
}

std::unique_ptr<LineSource> MakeWindowsXml(Mapper& mapper) {
    return std::make_unique<WindowsXml>(mapper);
}

}  // namespace zel
