#include "hunt/hittexts.h"

#include "records/recordwriter.h"

// A mark is known again by how it begins: it is written by one routine, and the store joins what it
// was given byte for byte. A rule is known by its identifier; one without goes by its title. The
// level stands last, so that a rule whose level was changed makes no second mark.

namespace zel {

namespace {

void WriteRule(const Rule& rule, RecordWriter& writer) {
    writer.Key("rule").BeginObject();
    writer.Key("title").Text(rule.title).Key("id").Text(rule.id);
    writer.Key("level").Text(rule.level).Key("author").Text(rule.author);
    writer.Key("tags").BeginArray();
    for (const std::string& tag : rule.tags)
        writer.Text(tag);
    writer.EndArray();
    writer.Key("status").Text(rule.status).Key("file").Text(rule.file).EndObject();
}

}  // namespace

std::string StartOfMark(const Rule& rule) {
    std::string text = R"({"sigma":{)";
    if (!rule.id.empty()) {
        text += R"("id":)";
        AppendJsonString(rule.id, &text);
    } else {
        text += R"("title":)";
        AppendJsonString(rule.title, &text);
    }
    return text + ",";
}

std::string MarkOf(const Rule& rule) {
    std::string text = StartOfMark(rule);
    if (!rule.id.empty()) {
        text += R"("title":)";
        AppendJsonString(rule.title, &text);
        text += ",";
    }
    text += R"("level":)";
    AppendJsonString(rule.level, &text);
    return text + "}}";
}

std::string HitJson(const Rule& rule, std::string_view event, const std::vector<std::string>& why) {
    std::string text;
    RecordWriter writer(&text);
    writer.BeginObject();
    WriteRule(rule, writer);
    writer.Key("why").BeginArray();
    for (const std::string& each : why)
        writer.Text(each);
    writer.EndArray().Key("event").Json(event).EndObject();
    return text;
}

std::string CountedHitJson(const Rule& rule, const CorrelationHit& hit) {
    std::string text;
    RecordWriter writer(&text);
    writer.BeginObject();
    WriteRule(rule, writer);
    writer.Key("correlation").BeginObject();
    writer.Key("first").Text(hit.first).Key("last").Text(hit.last);
    writer.Key("count").Number(hit.count).Key("group").BeginObject();
    for (std::size_t i = 0; i < hit.group.size() && i < rule.counts->groupBy.size(); ++i)
        writer.Key(rule.counts->groupBy[i]).Text(hit.group[i]);
    writer.EndObject().EndObject().EndObject();
    return text;
}

}  // namespace zel
