#include "zel/upkeep/foldercheck.h"

#include <leveldb/db.h>

#include <memory>
#include <new>

#include "common/filesystem.h"
#include "common/result.h"
#include "common/textbridge.h"
#include "connection/resultwords.h"
#include "zel/terminal/messages.h"
#include "zelstore/database/leftovers.h"
#include "zelstore/database/readingenv.h"
#include "zelstore/database/statusresult.h"

// The library opens and walks a database without verifying what it need not: checksums only of
// blocks that it happens to read, damaged log records passed over. The check asks for all of it
// (paranoid_checks, verify_checksums) and reads every row once. It reads the folder as it stands
// and leaves no trace in it, so that a copy can be checked as evidence, and a folder that is in
// use.

namespace zel {

namespace {

namespace hr = ZEL::hr;

ZEL::HRESULT ResultOf(const leveldb::Status& status, std::string* why) {
    if (!status.ok())
        *why = status.ToString();
    return ZEL::FromStatus(status);
}

// Without the cache, which would drop what it holds for rows that are looked at once.
leveldb::Status ReadAll(leveldb::DB& database) {
    constexpr std::uint64_t rowsPerLook = 1000;
    leveldb::ReadOptions options;
    options.verify_checksums = true;
    options.fill_cache = false;
    const std::unique_ptr<leveldb::Iterator> row(database.NewIterator(options));
    std::uint64_t rows = 0;
    for (row->SeekToFirst(); row->Valid(); row->Next())
        if (++rows % rowsPerLook == 0 && Interrupted())
            break;
    return row->status();
}

ZEL::HRESULT Check(const std::string& folder, std::string* why) {
    std::wstring wide;
    if (!wm::ToWide(folder, wide) || !wm::FileExists(wm::JoinPath(wide, L"CURRENT"))) {
        // What a kill has left of a making is taken away when the store next starts for writing.
        if (!wide.empty() && ZEL::HoldsNoRows(wide))
            return hr::ok;
        *why = "no database: the file CURRENT is missing";
        return hr::fail;
    }
    std::unique_ptr<ZEL::ReadingEnv> standing;
    const ZEL::HRESULT taken = ZEL::ReadingEnv::Take(wide, &standing);
    if (Failed(taken)) {
        *why = Describe(static_cast<std::int32_t>(taken));
        return taken;
    }
    leveldb::Options options;
    options.env = standing.get();
    options.paranoid_checks = true;
    leveldb::DB* opened = nullptr;
    const leveldb::Status status = leveldb::DB::Open(options, folder, &opened);
    const std::unique_ptr<leveldb::DB> database(opened);
    return ResultOf(status.ok() ? ReadAll(*database) : status, why);
}

}  // namespace

std::int32_t CheckFolder(const std::string& folder, std::string* why) {
    try {
        return static_cast<std::int32_t>(Check(folder, why));
    } catch (const std::bad_alloc&) {  // damaged sizes ask for any amount of it
        *why = "memory is exhausted";
        return static_cast<std::int32_t>(hr::outOfMemory);
    }
}

}  // namespace zel
