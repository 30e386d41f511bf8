#include "common/hostservices.h"
#include "common/neverdestroyed.h"
#include "connection/storereports.h"
#include "sql/tables.h"

// The loadable extension: .load zelsqlite, then create virtual table e using zel('DIR').
//
// It is a guest in a program of somebody else: it prints nothing, handles no signals, and stays
// loaded once it is there, as the store that it has opened does.

SQLITE_EXTENSION_INIT1

namespace {

// What is worth no error has nobody to hear it here.
class Silence final : public zel::ISessionListener {
public:
    void Say(const std::string&) override {}
    bool Interrupted() noexcept override { return false; }
};

}  // namespace

// SQLite makes the name from that of the file.
extern "C" __attribute__((visibility("default"))) int sqlite3_zelsqlite_init(
    sqlite3* database, char** message, const sqlite3_api_routines* routines) {
    constexpr int oldest = 3038000;  // the table of functions of older ones is too short
    if (routines->libversion_number() < oldest) {
        *message = routines->mprintf("zelsqlite needs SQLite 3.38 or later");
        return SQLITE_ERROR;
    }
    SQLITE_EXTENSION_INIT2(routines);
    // Threads of the host may use them until its very end.
    static wm::NeverDestroyed<Silence> silence;
    static wm::NeverDestroyed<zel::StoreReports> reports(*silence, false);
    wm::SetErrorReportSink(&*reports);
    wm::SetTraceSink(&*reports);
    const int result = zel::RegisterTables(database, nullptr, *silence);
    if (result == SQLITE_OK)
        return SQLITE_OK_LOAD_PERMANENTLY;
    *message = sqlite3_mprintf("%s", sqlite3_errstr(result));
    return result;
}
