#include "fleet/sending/enrichmentsending.h"

#include <leveldb/db.h>

#include <charconv>
#include <memory>
#include <utility>
#include <vector>

#include "common/filesystem.h"
#include "common/foldernames.h"
#include "common/hostservices.h"
#include "common/textbridge.h"
#include "common/utctime.h"
#include "connection/resultwords.h"
#include "fleet/fleetrow.h"
#include "fleet/fleettable.h"
#include "fleet/fleettime.h"
#include "zelstore/database/readingenv.h"
#include "zelstore/keys/keyformat.h"

// What a folder looked like, and when, is kept with the place of the events. Enrichments are mostly
// numbered by the moment in which they were made, so of a folder of which all was sent before only
// those are sent that are not much older than that look. Those with other numbers are sent again,
// which changes nothing: the latest row under a key counts.

namespace zel::fleet {

namespace {

constexpr std::string_view silentNumber = "999";
constexpr std::string_view numberMark = "<silent_sequence>", liveMark = "<silent_enrichment>0";
// A writer's clock may be set back, and what it made may have waited in a spool.
constexpr std::int64_t marginMicroseconds = 3600LL * 1000000;

bool IsOfEnrichments(std::string_view name) {
    return ZEL::IsDatabaseName(name) && name.size() > 8 && name.ends_with(silentNumber);
}

// The same as long as nothing was written. The library's protocol says nothing of rows.
std::string LookOf(const std::wstring& folder) {
    std::vector<wm::FileState> files;
    if (Failed(wm::ListFileStates(folder, files)))
        return "";
    std::uint64_t hash = 0xCBF29CE484222325;
    const auto add = [&hash](std::string_view text) {
        for (const char c : text)
            hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3;
    };
    for (const wm::FileState& file : files)
        if (!file.name.starts_with("LO"))
            add(file.name + "/" + std::to_string(file.bytes) + "/" + std::to_string(file.changed));
    return std::to_string(hash);
}

// When a folder was looked at last, in microseconds; 0 for never.
std::int64_t MomentOf(std::string_view kept) {
    const std::size_t blank = kept.find(' ');
    std::int64_t moment = 0;
    if (blank != kept.npos)
        std::from_chars(kept.data() + blank + 1, kept.data() + kept.size(), moment);
    return moment;
}

// The moment that numbers an enrichment; none for another number.
std::int64_t MadeAt(std::string_view number) {
    constexpr std::size_t digits = 18;
    std::int64_t moment = 0;
    const std::string_view text = number.substr(0, number.find('<'));
    if (text.size() == digits && text[0] == '9')
        std::from_chars(text.data() + 1, text.data() + text.size(), moment);
    return moment;
}

}  // namespace

EnrichmentSending::EnrichmentSending(std::string directory, std::string host,
                                     const BatchLimits& limits,
                                     std::map<std::string, std::string> folders,
                                     RowDelivery& delivery, ISessionListener& listener)
    : directory_(std::move(directory)),
      host_(std::move(host)),
      folders_(std::move(folders)),
      delivery_(delivery),
      listener_(listener),
      maker_(enrichmentsTable, limits, delivery) {}

bool EnrichmentSending::TakeRow(std::string_view key, std::string_view text, std::int64_t since,
                                std::uint64_t sentMs) {
    const std::size_t mark = key.rfind(numberMark);
    if (mark == key.npos || !wm::IsUtf8(key) || !wm::IsUtf8(text))
        return true;
    const std::int64_t made = MadeAt(key.substr(mark + numberMark.size()));
    if (made != 0 && made < since)
        return true;
    std::string& rows = maker_.Rows();
    rows.append("{\"host\":");
    AppendJsonText(host_, &rows);
    rows.append(",\"sent_ms\":").append(std::to_string(sentMs)).append(",\"begin_time\":");
    AppendJsonText(ZEL::BeginTimeOf(key), &rows);
    rows.append(",\"base_key\":");
    AppendJsonText(key.substr(0, mark), &rows);
    rows.append(",\"key\":");
    AppendJsonText(key, &rows);
    rows.append(",\"live\":").append(key.ends_with(liveMark) ? "1" : "0").append(",\"text\":");
    AppendJsonText(text, &rows);
    rows.append("}\n");
    maker_.EndRow();
    return !maker_.IsFull() || maker_.Give();
}

bool EnrichmentSending::SendFolder(const std::string& name, const std::string& look,
                                   std::int64_t now) {
    const std::string path = directory_ + "/" + name;
    std::wstring wide;
    std::unique_ptr<ZEL::ReadingEnv> standing;
    const ZEL::HRESULT taken =
        wm::ToWide(path, wide) ? ZEL::ReadingEnv::Take(wide, &standing) : ZEL::hr::fail;
    leveldb::Options options;
    options.env = standing.get();
    leveldb::DB* opened = nullptr;
    const leveldb::Status status =
        Succeeded(taken) ? leveldb::DB::Open(options, path, &opened) : leveldb::Status::IOError("");
    const std::unique_ptr<leveldb::DB> database(opened);
    // A writer that never pauses, or a purge: the next round looks again.
    if (taken == ZEL::hr::sharingViolation || !wm::IsDirectory(wide))
        return true;
    if (!status.ok()) {
        ++unread_;
        listener_.Say(
            "the enrichments in " + name + " can't be read: " +
            (Failed(taken) ? Describe(static_cast<std::int32_t>(taken)) : status.ToString()));
        return true;
    }
    standing->Seal();
    const std::int64_t last = MomentOf(folders_[name]);
    const std::int64_t since = last > marginMicroseconds ? last - marginMicroseconds : 0;
    leveldb::ReadOptions reading;
    reading.fill_cache = false;
    const std::unique_ptr<leveldb::Iterator> row(database->NewIterator(reading));
    for (row->SeekToFirst(); row->Valid(); row->Next())
        if (!TakeRow({row->key().data(), row->key().size()},
                     {row->value().data(), row->value().size()}, since,
                     static_cast<std::uint64_t>(now / 1000)))
            return false;
    if (!row->status().ok()) {
        ++unread_;
        listener_.Say("the enrichments in " + name +
                      " can't all be read: " + row->status().ToString());
        return maker_.Give();
    }
    const std::string kept = look + " " + std::to_string(now);
    maker_.Batch().folder = name;
    maker_.Batch().folderLook = kept;
    folders_[name] = kept;
    return maker_.Give();
}

bool EnrichmentSending::Round() {
    unread_ = 0;
    std::wstring directory;
    std::vector<std::wstring> folders;
    if (!wm::ToWide(directory_, directory) || Failed(wm::ListDirectories(directory, folders)))
        return delivery_.Drain();
    const auto now =
        static_cast<std::int64_t>(MillisecondsOf(wm::FormatUtc(wm::Clock().UtcNow())).value_or(0)) *
        1000;
    for (const std::wstring& folder : folders) {
        std::string name;
        if (!wm::ToUtf8(wm::LastPathComponent(folder), name) || !IsOfEnrichments(name))
            continue;
        // Ahead of the reading: what is written meanwhile makes the next look another one.
        const std::string look = LookOf(folder);
        const auto known = folders_.find(name);
        const bool isSame = known != folders_.end() && !look.empty() &&
                            known->second.substr(0, known->second.find(' ')) == look;
        if (!isSame && !SendFolder(name, look, now))
            return false;
    }
    return delivery_.Drain();
}

}  // namespace zel::fleet
