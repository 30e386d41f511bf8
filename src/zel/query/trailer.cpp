#include "zel/query/trailer.h"

#include "connection/resultwords.h"
#include "records/recordwriter.h"
#include "zel/terminal/narrator.h"
#include "zel/terminal/textfit.h"

// The store tells rows and failures; which folders there are, and when they were written, only its
// directory does.

namespace zel {

namespace {

void WriteFailures(const std::vector<DatabaseError>& failures, RecordWriter& writer) {
    writer.Key("not_read").BeginArray();
    for (const DatabaseError& failure : failures)
        writer.BeginObject()
            .Key("folder")
            .Text(failure.folder)
            .Key("why")
            .Text(Describe(failure.lastResult))
            .EndObject();
    writer.EndArray();
}

const char* Truth(bool is) {
    return is ? "true" : "false";
}

}  // namespace

Trailer BeginTrailer() {
    Trailer trailer;
    StoreLook look;
    if (!LookAtStore(StoreNeed::reading, &look))
        return trailer;
    for (const StoreFolder& folder : look.listing.folders) {
        trailer.isBeingWritten = trailer.isBeingWritten || folder.inUse;
        if (std::string_view(folder.Kind()) != "events")
            continue;
        if (trailer.folders++ == 0)
            trailer.oldest = folder.Date();
    }
    trailer.writtenUntil = look.writtenUntil;
    return trailer;
}

std::string Trailer::Json() const {
    std::string text;
    RecordWriter writer(&text);
    const auto optional = [&](const char* key, const std::string& value) {
        writer.Key(key);
        if (value.empty())
            writer.Json("null");
        else
            writer.Text(value);
    };
    writer.BeginObject().Key("trailer").BeginObject();
    writer.Key("found").Number(found).Key("rows").Number(rows).Key("folders").Number(folders);
    WriteFailures(failures, writer);
    optional("oldest", oldest);
    optional("written_until", writtenUntil);
    writer.Key("being_written").Json(Truth(isBeingWritten));
    writer.Key("limited").Json(Truth(hasMore));
    writer.Key("complete").Json(Truth(isWhole));
    writer.EndObject().EndObject();
    return text;
}

std::string Trailer::Words() const {
    std::string text = std::to_string(found) + " event(s) found, " + std::to_string(rows) +
                       " row(s) looked at, " + std::to_string(folders) + " folder(s)";
    if (!oldest.empty())
        text += " from " + Escaped(oldest) + " on";
    if (!failures.empty())
        text += ", " + std::to_string(failures.size()) + " of them not read in full";
    if (!writtenUntil.empty())
        text += ", last written " + writtenUntil;
    return text + (isBeingWritten ? " by an agent that still writes" : "");
}

}  // namespace zel
