#include "storesession.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>
#include <utility>

#include "common/hostservices.h"
#include "common/textbridge.h"
#include "messages.h"

namespace zel {

using ZEL::CountedPtr;
using ZEL::IStringValue;

namespace {

std::atomic<std::uint32_t> damagedReads{0};
thread_local std::string reason;  // what the store last said of something it did not understand

// Tells reports and traces of the store and its services, for -v; reports of broken settings
// always.
class Narrator final : public wm::IErrorReportSink, public wm::ITraceSink {
public:
    explicit Narrator(bool verbose) : verbose_(verbose) {}

    void OnReport(const wm::ErrorReport& report) override {
        if (report.Label() == wm::reportLabel::damagedData)
            ++damagedReads;
        const bool isSettings = report.Label() == "Settings";
        if (!verbose_ && !isSettings)
            return;
        std::string line = report.Label().empty() ? report.Where().function : report.Label();
        line += ": " + Describe(static_cast<std::int32_t>(report.Code()));
        for (const auto& [name, value] : report.Details())
            line.append(", ").append(name).append(": ").append(value);
        Say(line);
    }
    bool Enabled(wm::TraceLevel level) const noexcept override {
        return level <= wm::TraceLevel::warning;
    }
    void OnTrace(const wm::TraceMessage& message) noexcept override {
        try {
            if (std::strcmp(message.text, wm::traceText::operationThrew) == 0)
                reason = message.argument;
            if (!verbose_)
                return;
            std::string line = message.text;
            if (Failed(message.code))
                line += ": " + Describe(static_cast<std::int32_t>(message.code));
            if (!message.argument.empty())
                line.append(": ").append(message.argument);
            Say(line);
        } catch (...) {
            return;  // a trace message is not worth more
        }
    }

private:
    const bool verbose_;
};

wm::IErrorReportSink* hostReports = nullptr;

bool SetToken(const std::string& name, const std::string& value) {
    std::wstring token, wide;
    if (!wm::ToWide("%" + name + "%", token) || !wm::ToWide(value, wide)) {
        Say(name + " is not UTF-8");
        return false;
    }
    wm::SetPathToken(token, wide);
    return true;
}

bool ReadConfiguration(const std::string& file) {
    try {
        for (const CLI::ConfigItem& item : CLI::ConfigINI().from_file(file)) {
            if (item.inputs.size() != 1) {
                Say(file + ": " + item.fullname() + " needs one value");
                return false;
            }
            if (!SetToken(item.name, item.inputs.front()))
                return false;
        }
        return true;
    } catch (const std::exception& error) {
        Say(file + ": " + error.what());
        return false;
    }
}

std::string DefaultSettingsFile() {
    const char* const config = std::getenv("XDG_CONFIG_HOME");
    if (config != nullptr && *config != '\0')
        return std::string(config) + "/zelstore/settings.ini";
    const char* const home = std::getenv("HOME");
    return home != nullptr && *home != '\0' ? std::string(home) + "/.config/zelstore/settings.ini"
                                            : "";
}

bool HasToken(const wchar_t* token) {
    std::wstring value;
    return wm::ResolvePathVariable(token, value) && !value.empty();
}

bool StoreDirectory(std::string* directory) {
    std::wstring wide;
    if (wm::ResolvePathVariable(L"%ZELDataStore%", wide) && wm::ToUtf8(wide, *directory))
        return true;
    Say("no store is named: use --store DIR, ZEL_STORE or a configuration with ZELDataStore");
    return false;
}

bool CheckDirectory(const std::string& directory, StoreSession::Need need) {
    constexpr mode_t ownerOnly = 0700;
    struct stat info {};
    bool exists = ::stat(directory.c_str(), &info) == 0;
    if (!exists && need == StoreSession::Need::writable) {
        if (::mkdir(directory.c_str(), ownerOnly) != 0) {
            Say("the store " + directory + " can't be made: " + std::strerror(errno));
            return false;
        }
        exists = ::stat(directory.c_str(), &info) == 0;
    }
    if (!exists || !S_ISDIR(info.st_mode)) {
        Say("the store " + directory + (exists ? " is no directory" : " does not exist"));
        return false;
    }
    const int access = need == StoreSession::Need::writable ? R_OK | W_OK | X_OK : R_OK | X_OK;
    if (::access(directory.c_str(), access) != 0) {
        Say("the store " + directory + " can't be used: " + std::strerror(errno));
        return false;
    }
    return true;
}

}  // namespace

wm::IErrorReportSink* HostReports() noexcept {
    return hostReports;
}

bool ApplyOptions(const GlobalOptions& options) {
    static Narrator narrator(options.verbose);
    hostReports = &narrator;
    wm::SetErrorReportSink(hostReports);
    wm::SetTraceSink(&narrator);
    if (!options.config.empty() && !ReadConfiguration(options.config))
        return false;
    if (!options.store.empty() && !SetToken("ZELDataStore", options.store))
        return false;
    if (HasToken(L"%ZELSettingsFile%"))
        return true;
    const std::string settings = DefaultSettingsFile();
    return settings.empty() || SetToken("ZELSettingsFile", settings);
}

bool FindStore(StoreSession::Need need, std::string* directory) {
    return StoreDirectory(directory) && CheckDirectory(*directory, need);
}

namespace {

// Readers of one store take turns. Whoever waits too long goes on all the same, and is told by the
// store which folders it could not open. -1 when the directory can't be opened.
int TakeTurn(const std::string& directory) {
    const int turn = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    constexpr int longestWaitMs = 5000, lookAgainMs = 20;
    for (int waitedMs = 0; turn >= 0 && waitedMs < longestWaitMs && !Interrupted();
         waitedMs += lookAgainMs) {
        if (::flock(turn, LOCK_EX | LOCK_NB) == 0)
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(lookAgainMs));
    }
    return turn;
}

}  // namespace

bool StoreSession::Open(Need need) {
    std::string directory;
    if (!FindStore(need, &directory))
        return false;
    if (need == Need::existing)
        turn_ = TakeTurn(directory);
    const ZEL::TobResult loaded = wm::LoadInstalledObject(
        L"ZELStore", ZEL::eventStoreObjectId, ZEL::iidEventStore7, store_.ReceiveVoid());
    if (Failed(loaded)) {
        Say("the store's component can't be loaded; -v tells why");
        return false;
    }
    const ZEL::HRESULT started = store_->Initialize();
    if (Failed(started)) {
        Say("the store " + directory +
            " can't be opened: " + Describe(static_cast<std::int32_t>(started)));
        store_.Reset();
        return false;
    }
    return true;
}

bool StoreSession::Close() {
    const bool isWhole = CloseStore();
    if (turn_ >= 0)
        ::close(std::exchange(turn_, -1));
    return isWhole;
}

bool StoreSession::CloseStore() {
    if (!store_)
        return true;
    const ZEL::HRESULT stopped = store_->Stop();
    if (Failed(stopped))
        Say("the last records can't be written: " + Describe(static_cast<std::int32_t>(stopped)));
    const ZEL::HRESULT closed = store_->Shutdown();
    // Only now has the last batch been written.
    const std::uint32_t failures = TellDatabaseErrors();
    store_.Reset();
    return Succeeded(stopped) && Succeeded(closed) && failures == 0;
}

const char* DatabaseError::Operation() const {
    constexpr const char* operations[] = {"use", "open", "read", "write"};
    return operations[operation % 4];
}

std::string DatabaseError::Text() const {
    return "folder " + folder + ": " + std::to_string(count) + " failure(s) to " + Operation() +
           ", the last: " + Describe(lastResult);
}

bool StoreSession::ReadDatabaseErrors(std::vector<DatabaseError>* errors) const {
    CountedPtr<ZEL::IValueCollection> list;
    if (Failed(store_->GetDatabaseErrors(list.Receive())) || !list)
        return false;
    for (std::size_t i = 0; i < list->Count(); ++i) {
        ZEL::IValueRecord& record = *list->GetRecord(i);
        DatabaseError error;
        std::uint32_t result = 0;
        error.folder = ToText(record.GetText(0));
        record.GetNumber(1, &error.operation);
        record.GetNumber(2, &error.count);
        record.GetNumber(3, &result);
        error.lastResult = static_cast<std::int32_t>(result);
        errors->push_back(std::move(error));
    }
    return true;
}

std::vector<DatabaseError> StoreSession::TakeDatabaseErrors() {
    std::vector<DatabaseError> errors;
    if (ReadDatabaseErrors(&errors))
        ZEL::IgnoreResult(store_->ClearDatabaseErrors(), "taken already");
    return errors;
}

std::uint32_t StoreSession::TellDatabaseErrors() {
    std::uint32_t total = 0;
    for (const DatabaseError& error : TakeDatabaseErrors()) {
        total += error.count;
        Say(error.Text());
    }
    if (const std::uint32_t reads = damagedReads.exchange(0)) {
        Say(std::to_string(reads) + " read(s) met damaged data; -v tells where");
        total += reads;
    }
    return total;
}

std::string TakeReason() {
    const std::string said = std::exchange(reason, "");
    // How the tables of names refuse what they don't hold.
    if (said == "invalid map<K, T> key")
        return "an object type, action or operator that is not known";
    return said.empty() ? "not understood" : said;
}

CountedPtr<IStringValue> ToValue(std::string_view utf8) {
    std::wstring wide;
    if (!wm::ToWide(utf8, wide))
        return nullptr;
    return CountedPtr<IStringValue>::Adopt(wm::CreateStringValue(std::wstring_view(wide)));
}

std::string ToText(IStringValue* value) {
    return value != nullptr ? wm::ToUtf8Lossy({value->GetText(), value->GetLength(0)}) : "";
}

std::string JsonString(std::string_view utf8) {
    std::string out = "\"";
    for (const char c : utf8) {
        if (c == '"' || c == '\\') {
            out.push_back('\\');
            out.push_back(c);
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof(escaped), "\\u%04x", static_cast<unsigned>(c));
            out += escaped;
        } else {
            out.push_back(c);
        }
    }
    return out + "\"";
}

}  // namespace zel
