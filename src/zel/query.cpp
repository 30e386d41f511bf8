#include <atomic>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <iterator>
#include <thread>

#include "commands.h"
#include "common/eventobject.h"
#include "common/textbridge.h"
#include "messages.h"
#include "storesession.h"
#include "timearg.h"

namespace zel {

namespace {

using ZEL::HRESULT;
namespace hr = ZEL::hr;

constexpr const char* firstTime = "1601-01-01T00:00:00.000Z";

// Writes results as they come. Lives on the caller's stack: its count is not looked at.
class Printer final : public ZEL::IQueryCallback {
public:
    explicit Printer(bool asArray) : asArray_(asArray) {}

    ZEL::TobResult QueryInterface(const ZEL::GUID&, void** out) override {
        *out = nullptr;
        return ZEL::TOBERR_NO_INTERFACE;
    }
    std::int64_t AddRef() override { return 2; }
    std::int64_t Release() override { return 1; }

    HRESULT OnQueryResults(HRESULT, ZEL::IValueCollection* results, bool isFinal, bool isComplete,
                           ZEL::IStringValue*, std::int32_t) override {
        if (isFinal) {
            complete_ = isComplete;
            if (asArray_)
                std::fputs(count_ == 0 ? "[]\n" : "\n]\n", stdout);
            return hr::ok;
        }
        for (std::size_t i = 0; i < results->Count(); ++i)
            Print(ToText(results->GetValue(i)));
        return hr::ok;
    }
    std::uint64_t Count() const noexcept { return count_; }
    bool Complete() const noexcept { return complete_; }
    bool Closed() const noexcept { return closed_; }

private:
    void Print(const std::string& text) {
        const char* const ahead = !asArray_ ? "" : count_ == 0 ? "[\n" : ",\n";
        ++count_;
        const bool written = std::fputs(ahead, stdout) >= 0 &&
                             std::fwrite(text.data(), 1, text.size(), stdout) == text.size() &&
                             (asArray_ || std::fputc('\n', stdout) != EOF);
        closed_ = closed_ || !written;
    }

    const bool asArray_;
    std::uint64_t count_ = 0;
    bool complete_ = true;
    std::atomic<bool> closed_{false};
};

// Stops the query when the user or the reader of the output asks for it. One setting stops the walk
// of one database only, so it is repeated until the query has ended.
class Stopper {
public:
    Stopper(wm::EventObject& stop, const Printer& printer)
        : thread_([this, &stop, &printer] {
              while (!ended_) {
                  if (Interrupted() || printer.Closed())
                      stop.Set();
                  std::this_thread::sleep_for(std::chrono::milliseconds(20));
              }
          }) {}
    ~Stopper() {
        ended_ = true;
        thread_.join();
    }
    Stopper(const Stopper&) = delete;
    Stopper& operator=(const Stopper&) = delete;

private:
    std::atomic<bool> ended_{false};
    std::thread thread_;
};

bool ReadTime(const char* flag, const std::string& argument, std::string* text) {
    const auto now =
        std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
    const TimeArgument time = ParseTimeArgument(argument, now);
    if (time.ok) {
        *text = time.text;
        return true;
    }
    Say(std::string(flag) + ": " + time.error + "\n  " + argument + "\n  " +
        std::string(time.column, ' ') + "^");
    return false;
}

bool BuildDocument(const QueryOptions& options, std::string* document) {
    std::string since = firstTime, until;
    if (!options.since.empty() && !ReadTime("--since", options.since, &since))
        return false;
    if (!options.until.empty() && !ReadTime("--until", options.until, &until))
        return false;
    const auto side = [](const char* name, const char* op, const std::string& time) {
        return JsonString(name) + ":{\"operator\":{\"value\":" + JsonString(op) +
               "},\"value\":" + JsonString(time) + "}";
    };
    *document =
        "{\"event_query\":{\"events\":[{" + side("begin_time", "greater_than_or_equal", since);
    if (!until.empty())
        *document += "," + side("end_time", "less_than_or_equal", until);
    *document += "}],\"limit_result_count\":" + std::to_string(options.limit) + "}}";
    return true;
}

bool GetDocument(const QueryOptions& options, std::string* document) {
    if (options.document.empty())
        return BuildDocument(options, document);
    if (!options.since.empty() || !options.until.empty() || options.limit >= 0) {
        Say("a document and --since, --until or --limit exclude each other");
        return false;
    }
    *document = options.document;
    if (options.document == "-")
        document->assign(std::istreambuf_iterator<char>(std::cin), {});
    if (document->empty() || !wm::IsUtf8(*document)) {
        Say(document->empty() ? "the document is empty" : "the document is not UTF-8");
        return false;
    }
    return true;
}

int EndOf(HRESULT result, const Printer& printer, std::uint32_t databaseErrors) {
    if (Interrupted())
        return exitCode::interrupted;
    if (Failed(result)) {
        Say("the query failed: " + Describe(static_cast<std::int32_t>(result)));
        return result == hr::outOfMemory ? exitCode::losses : exitCode::usage;
    }
    if (!printer.Complete())
        Say("the limit has cut results off");
    // What a reader that went away did not want is no loss.
    if (databaseErrors > 0 && !printer.Closed())
        return exitCode::losses;
    return printer.Count() > 0 ? exitCode::done : exitCode::nothingFound;
}

}  // namespace

int RunQuery(const QueryOptions& options) {
    std::string document;
    if (!GetDocument(options, &document))
        return exitCode::usage;
    if (options.explain) {
        std::printf("%s\n", document.c_str());
        return exitCode::done;
    }
    const auto text = ToValue(document);
    StoreSession store;
    if (!text || !store.Open(StoreSession::Need::existing))
        return exitCode::noStore;
    wm::EventObject stop;
    if (!stop.Create(false, false))
        return exitCode::noStore;
    Printer printer(options.output == "json");
    HRESULT result = hr::ok;
    {
        const Stopper stopper(stop, printer);
        result = store->Query(text.Get(), &printer, stop.Handle());
    }
    std::fflush(stdout);
    // A walk that was stopped counts as a failure of its database, which is no news then.
    const std::uint32_t errors = Interrupted() || printer.Closed() ? 0 : store.TellDatabaseErrors();
    return EndOf(result, printer, errors);
}

}  // namespace zel
