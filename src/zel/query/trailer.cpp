#include "zel/query/trailer.h"

#include <algorithm>
#include <chrono>
#include <filesystem>

#include "common/utctime.h"
#include "connection/resultwords.h"
#include "connection/storefolders.h"
#include "records/recordwriter.h"
#include "zel/terminal/narrator.h"
#include "zel/terminal/textfit.h"

// The store tells rows and failures; which folders there are, and when they were written, only its
// directory does.

namespace zel {

namespace fs = std::filesystem;

namespace {

// The last time at which one of the folder's files was written; empty where that can't be told.
std::string LastWritten(const fs::path& folder) {
    using std::chrono::milliseconds;
    fs::file_time_type latest = fs::file_time_type::min();
    std::error_code error;
    for (fs::directory_iterator it(folder, error); !error && it != fs::directory_iterator();
         it.increment(error)) {
        const fs::file_time_type time = it->last_write_time(error);
        if (!error)
            latest = std::max(latest, time);
        error.clear();
    }
    if (latest == fs::file_time_type::min())
        return "";
    const auto point = std::chrono::file_clock::to_sys(latest);
    return wm::FormatUtc(wm::ToSystemTime(std::chrono::floor<milliseconds>(point)));
}

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
    std::string directory;
    if (!FindStore(StoreNeed::reading, &directory))
        return trailer;
    const StoreFolder* newest = nullptr;
    const StoreListing listing = ListStore(directory);
    for (const StoreFolder& folder : listing.folders) {
        trailer.isBeingWritten = trailer.isBeingWritten || folder.inUse;
        if (std::string_view(folder.Kind()) != "events")
            continue;
        ++trailer.folders;
        if (newest == nullptr)
            trailer.oldest = folder.Date();
        newest = &folder;
    }
    if (newest != nullptr)
        trailer.writtenUntil = LastWritten(fs::path(directory) / newest->name);
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
