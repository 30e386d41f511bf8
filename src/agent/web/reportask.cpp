#include "agent/web/reportask.h"

#include <simdjson.h>

#include "records/eventkey.h"

namespace zel {

namespace {

constexpr std::size_t mostEvents = 1000;
constexpr std::size_t longestTitle = 1000;  // bytes

using Element = simdjson::dom::element;

// Empty for what is not there.
std::string TextOf(const simdjson::simdjson_result<Element>& element) {
    std::string_view text;
    return element.get(text) == simdjson::SUCCESS ? std::string(text) : std::string();
}

bool ReadParameters(const Element& body, Parameters* parameters) {
    simdjson::dom::array pairs;
    if (body["question"]["parameters"].get(pairs) != simdjson::SUCCESS)
        return false;
    for (const Element pair : pairs) {
        std::string_view name, value;
        if (pair.at(0).get(name) != simdjson::SUCCESS || pair.at(1).get(value) != simdjson::SUCCESS)
            return false;
        parameters->emplace_back(name, value);
    }
    return true;
}

bool ReadEvents(const Element& body, std::vector<ReportAsk::Event>* events, std::string* problem) {
    simdjson::dom::array list;
    if (body["events"].get(list) != simdjson::SUCCESS || list.size() > mostEvents) {
        *problem = "events is no list, or has more than 1000";
        return false;
    }
    for (const Element one : list) {
        events->push_back({TextOf(one["key"]), TextOf(one["note"])});
        if (!WhyNoEventKey(events->back().key).empty()) {
            *problem = "an event's key: " + std::string(WhyNoEventKey(events->back().key));
            return false;
        }
    }
    return true;
}

}  // namespace

bool ReadReportAsk(const std::string& body, ReportAsk* ask, std::string* problem) {
    simdjson::dom::parser parser;
    Element element;
    if (parser.parse(body).get(element) != simdjson::SUCCESS ||
        !ReadParameters(element, &ask->parameters)) {
        *problem =
            R"(the body is not of the form {"question":{"parameters":[...]},"events":[...]})";
        return false;
    }
    ask->command = TextOf(element["question"]["command"]);
    ask->title = TextOf(element["title"]);
    if (ask->title.size() > longestTitle)
        *problem = "the title has more than 1000 bytes";
    return problem->empty() && ReadEvents(element, &ask->events, problem);
}

}  // namespace zel
