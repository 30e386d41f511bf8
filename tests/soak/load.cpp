#include "load.h"

#include <malloc.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <set>
#include <thread>

#include "common/filesystem.h"
#include "host.h"
#include "question.h"
#include "support/client.h"
#include "support/fakesettings.h"
#include "support/storefixture.h"

// In a phase the producers, the host's own work and the disk monitor end first; then the store
// stops and shuts down while queries still come and go.

namespace ZEL::soak {

namespace fs = std::filesystem;
using Random = std::mt19937_64;

namespace {

void Pause(std::uint64_t milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

std::size_t Entries(const char* directory) {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(directory), fs::directory_iterator()));
}

std::uint64_t Bytes(const fs::path& folder) {
    std::uint64_t bytes = 0;
    EXPECT_EQ(wm::FolderSize(folder.wstring(), &bytes), hr::ok);
    return bytes;
}

class Load {
public:
    explicit Load(const Options& options) : options_(options), producers_(options.producers) {
        std::wstring store;
        EXPECT_TRUE(wm::ToWide((options.directory / "store").string(), store));
        wm::SetPathToken(L"%ZELDataStore%", store);
        wm::SetErrorReportSink(&reports_);
    }

    // `isFirst`: the catalog still knows the folders of earlier phases.
    void RunPhase(unsigned phase, bool isFirst) {
        Step(phase, "Initialize");
        capacity_ = phase % 3 == 0 ? 1000 : phase % 3 == 1 ? 5000 : 20000;
        settings_.Set(L"ZEL\\Settings\\FDR\\MAX_INCOMING_QUEUE_LENGTH", capacity_);
        if (!store_)
            store_ = component_.Store();
        EXPECT_EQ(store_->Initialize(), hr::ok);
        phase_ = phase;
        if (isFirst && phase > 0)
            AskForEarlierPhase();
        Reset(phase);
        Bear(isFirst);
        LookAtErrors();
        // Every second phase finds the store's core as the phase before has left it.
        if (phase % 2 == 1)
            store_.Reset();
        Leave();
    }

private:
    double Elapsed() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    }

    void Reset(unsigned phase) {
        phase_ = phase;
        for (Producer& producer : producers_) {
            producer.sent = 0;
            for (auto& fates : producer.fates)
                for (auto& fate : fates)
                    fate = unsent;
        }
        victim_.clear();
        taken_ = 0;
        queries_ = results_ = 0;
        loadEnds_ = storeStops_ = storeStopped_ = false;
        start_ = std::chrono::steady_clock::now();
        SetClock();
    }

    void Bear(bool isFirst) {
        std::vector<std::thread> senders, askers;
        const unsigned seed = options_.seed + phase_ * 100;
        Step(phase_, "load");
        for (unsigned i = 0; i < producers_.size(); ++i)
            senders.emplace_back([=, this] { Produce(i, Random(seed + i)); });
        senders.emplace_back([=, this] { Monitor(Random(seed + 20)); });
        for (unsigned i = 0; i < 4; ++i)
            askers.emplace_back([=, this] { Ask(Random(seed + 30 + i), i % 2 == 0); });
        Host(Random(seed + 40), isFirst);
        Step(phase_, "end of the load");
        loadEnds_ = true;
        for (std::thread& sender : senders)
            sender.join();
        Step(phase_, "Stop");
        storeStops_ = true;
        EXPECT_EQ(store_->Stop(), hr::ok);
        Step(phase_, "Shutdown");
        EXPECT_EQ(store_->Shutdown(), hr::ok);
        Step(phase_, "end of the queries");
        storeStopped_ = true;
        for (std::thread& asker : askers)
            asker.join();
    }

    // In bursts, so that queues overflow.
    void Produce(unsigned producer, Random random) {
        for (unsigned number = 0; !loadEnds_ && number < mostEvents;) {
            const std::uint64_t burst = number + 500 + random() % 3000;
            for (; number < burst && number < mostEvents && !loadEnds_; ++number) {
                producers_[producer].sent = number + 1;
                SendEvent({event, phase_, producer, number});
            }
            while (!loadEnds_ && number > mostEvents / options_.PhaseSeconds() * Elapsed())
                Pause(2);
        }
    }

    void SendEvent(RowId id) {
        CountedPtr<IStringValue> eventKey, key;
        const auto text = test::Str(Value(id));
        EXPECT_EQ(store_->MakeKey(text.Get(), keyKindEvent, eventKey.Receive()), hr::ok);
        if (test::Utf8(eventKey.Get()) != EventKey(id))
            Broken("made the key " + test::Utf8(eventKey.Get()));
        if (!Offer(id, eventKey.Get()))
            return;
        EXPECT_EQ(store_->MakeKey(text.Get(), keyKindReceive, key.Receive()), hr::ok);
        for (const Kind kind : {receive, live, silent}) {
            if (!HasRow(kind, id.number))
                continue;
            const HRESULT made = kind == receive
                                     ? hr::ok
                                     : store_->MakeFlaggedEnrichmentKey(
                                           eventKey.Get(), kind == silent, key.Receive());
            EXPECT_EQ(made, hr::ok);
            Offer({kind, id.phase, id.producer, id.number}, key.Get());
        }
    }

    // Some rows are offered up to three times, as a patient host does; then they are given up.
    bool Offer(const RowId& id, IStringValue* key) {
        auto& fate = producers_[id.producer].fates[id.number][id.kind];
        const auto value = test::Str(Value(id));
        for (unsigned i = 0; i <= id.number % 3; ++i) {
            const HRESULT result = id.kind == silent ? store_->InsertSilent(key, value.Get())
                                                     : store_->Insert(key, value.Get());
            if (Succeeded(result)) {
                fate = acknowledged + (id.kind == silent ? 0 : taken_++);
                return true;
            }
            if (result != hr::fail)
                Broken("Insert gave " + std::to_string(Bits(result)));
            Pause(1);
        }
        fate = refused;
        return false;
    }

    void Ask(Random random, bool inThread) {
        // A query's thread lets its callback go when the store has shut down, at the latest.
        std::vector<std::unique_ptr<test::RecordingCallback>> callbacks;
        while (!storeStopped_) {
            Question question{.phase = phase_,
                              .creations = random() % 2 == 0,
                              .enrichments = random() % 2 == 0,
                              .isReceive = random() % 3 == 0,
                              .since = TimeText(phase_, day_, millisecond_)};
            question.from = static_cast<unsigned>(random() % (producers_[0].sent + 1));
            question.to = question.from + 1 + static_cast<unsigned>(random() % 3000);
            // The queue and a flush in progress may hold as many rows each as the queue has room
            // for.
            const std::uint32_t taken = taken_, inMemory = 2 * capacity_ + 1100;
            test::RecordingCallback& callback =
                *callbacks.emplace_back(std::make_unique<test::RecordingCallback>());
            const bool isWhole =
                inThread ? RunInThread(question.Document(), callback, random)
                         : Succeeded(test::RunQuery(*store_, question.Document(), callback));
            question.Check(producers_, callback.texts, isWhole && !storeStops_,
                           taken > inMemory ? taken - inMemory : 0);
            ++queries_;
            results_ += callback.texts.size();
            std::vector<std::string>().swap(callback.texts);
            Pause(random() % 20);
        }
    }

    // False when the query was ended early.
    bool RunInThread(const std::string& document, test::RecordingCallback& callback,
                     Random& random) const {
        const auto query = component_.Query();
        if (Failed(query->Start(test::Str(document).Get(), &callback))) {
            EXPECT_TRUE(storeStops_);
            return false;
        }
        enum { paused, stopped, cancelled, left };
        const auto way = random() % 4;
        if (way == paused)
            IgnoreResult(query->Pause(), "always succeeds");
        Pause(random() % 5);
        if (way == paused)
            IgnoreResult(query->Resume(), "always succeeds");
        if (way == stopped)
            IgnoreResult(query->RequestStop(), "fails when the store stops");
        if (way != cancelled)
            callback.AwaitEnd();
        EXPECT_TRUE(Succeeded(query->StopAndWait()));
        callback.AwaitEnd();
        return way == paused || way == left;
    }

    // The first phase of a process still finds what the process before has written.
    void AskForEarlierPhase() {
        Reset(phase_ - 1);
        std::ifstream file(options_.Fates(phase_), std::ios::binary);
        for (Producer& producer : producers_) {
            for (auto& fates : producer.fates)
                for (auto& fate : fates)
                    fate = static_cast<std::uint8_t>(file.get());
            producer.sent = mostEvents;
        }
        const Question question{.phase = phase_};
        test::RecordingCallback callback;
        const HRESULT result = test::RunQuery(*store_, question.Document(), callback);
        question.Check(producers_, callback.texts, Succeeded(result), 1);
        ++phase_;
    }

    void Host(Random random, bool isFirst) {
        CountedPtr<IStringValue> oldest;
        std::uint64_t bytes = 0;
        const unsigned seconds = options_.PhaseSeconds();
        for (bool isLate = false; Elapsed() < seconds; Pause(5)) {
            SetClock();
            if (!std::exchange(isLate, Elapsed() > seconds / 2.0) && isLate) {
                // As many table files as a full folder has: the store goes on in another.
                constexpr int fullFolder = 80;
                const fs::path folder = options_.directory / "store" / Date(phase_, day_);
                for (int i = 0; i < fullFolder && fs::exists(folder); ++i)
                    std::ofstream(folder / ("filler" + std::to_string(i) + ".ldb"));
                if (isFirst)
                    PurgeEarlierPhases();
            }
            const auto choice = random() % 20;
            if (choice == 0)
                IgnoreResult(store_->SetLiveMode(random() % 2 == 0), "always succeeds");
            if (choice == 1)
                LookAtErrors();
            if (choice > 2)
                continue;
            EXPECT_EQ(store_->GetOldestDate(oldest.Receive(), &bytes), hr::ok);
            EXPECT_LE(test::Utf8(oldest.Get()), Date(phase_, daysOfAPhase - 1));
        }
    }

    void SetClock() {
        constexpr unsigned morning = 10 * 3600000;
        const auto elapsed = static_cast<unsigned>(Elapsed() * 1000);
        day_ =
            std::min(daysOfAPhase - 1, elapsed * daysOfAPhase / (options_.PhaseSeconds() * 1000));
        millisecond_ = morning + elapsed;
        wm::SystemTime time;
        std::sscanf(TimeText(phase_, day_, millisecond_).c_str(),
                    "%4hu-%2hu-%2huT%2hu:%2hu:%2hu.%3huZ", &time.year, &time.month, &time.day,
                    &time.hour, &time.minute, &time.second, &time.milliseconds);
        clock_.SetTime(time);
    }

    // To a limit that only folders from before the last phase are in excess of, whatever is written
    // meanwhile.
    void PurgeEarlierPhases() {
        constexpr std::uint64_t megabyte = 0x100000;
        std::set<fs::path> earlier;
        std::uint64_t bytes = 0;
        for (const auto& entry : fs::directory_iterator(options_.directory / "store"))
            if (phase_ > 1 && entry.path().filename().string() < Date(phase_ - 1, 0))
                bytes += Bytes(*earlier.insert(entry.path()).first);
        if (bytes < 4 * megabyte)
            return;
        victim_ = *earlier.begin();
        const std::uint64_t limit = Bytes(options_.directory / "store") - bytes * 3 / 4;
        while (store_->Purge(static_cast<std::uint32_t>(limit / megabyte + 1)) == hr::nothingToDo)
            Pause(1);
    }

    // Walks that were ended early count as failures, and so do folders that went ahead of a reader.
    void LookAtErrors() const {
        CountedPtr<IValueCollection> errors;
        EXPECT_EQ(store_->GetDatabaseErrors(errors.Receive()), hr::ok);
        for (std::size_t i = 0; i < errors->Count(); ++i) {
            IValueRecord& error = *errors->GetRecord(i);
            std::uint32_t operation = 0, result = 0;
            error.GetNumber(1, &operation);
            error.GetNumber(3, &result);
            const std::string folder = test::Utf8(error.GetText(0));
            const bool isPurged =
                result == Bits(hr::fail) && !victim_.empty() && folder < Date(phase_ - 1, 0);
            if (operation != 2 || (result != Bits(hr::aborted) && !isPurged))
                Broken("failed in " + folder + ": operation " + std::to_string(operation) +
                       ", result " + std::to_string(result));
        }
        IgnoreResult(store_->ClearDatabaseErrors(), "always succeeds");
    }

    void Monitor(Random random) const {
        CountedPtr<IDiskSpaceMonitorManager> manager;
        EXPECT_EQ(component_.Factory(diskSpaceMonitorManagerObjectId)
                      ->CreateInstance(iidDiskSpaceMonitorManager, manager.ReceiveVoid()),
                  TOB_OK);
        while (!loadEnds_) {
            if (random() % 10 == 0)
                IgnoreResult(store_->Purge(0xFFFFFFFF), "one of the host may be under way");
            EXPECT_EQ(manager->StartMonitor(), hr::ok);
            CountedPtr<IMonitorRegistration> registration;
            EXPECT_EQ(manager->GetRegistration(registration.Receive()), hr::ok);
            Subscriber one, other;
            EXPECT_EQ(registration->Subscribe(&one), hr::ok);
            EXPECT_EQ(registration->Subscribe(&other), hr::ok);
            Pause(random() % 10);
            EXPECT_EQ(registration->Unsubscribe(&one), hr::ok);
            EXPECT_EQ(registration->Unsubscribe(nullptr), hr::ok);
            EXPECT_EQ(one.heard + other.heard, 2U);
            if (random() % 10 == 0)
                IgnoreResult(manager->StopMonitor(), "always succeeds");
        }
        IgnoreResult(manager->StopMonitor(), "always succeeds");
    }

    void Leave() {
        constexpr const char* threads = "/proc/self/task";
        constexpr std::size_t kilobytesAPage = 4;
        Step(phase_, "between phases");
        std::ofstream fates(options_.Fates(phase_), std::ios::binary);
        for (const Producer& producer : producers_)
            for (const auto& of : producer.fates)
                for (const auto& fate : of)
                    fates.put(static_cast<char>(std::min<std::uint32_t>(fate, acknowledged)));
        fates.close();
        if (!victim_.empty() && fs::exists(victim_))
            Broken("purged, and still there: " + victim_.string());
        EXPECT_EQ(component_.getObjectCount(), store_ ? 1U : 0U);
        if (quietThreads_ == 0)
            quietThreads_ = Entries(threads);
        // A thread that was waited for may show for another moment.
        for (int i = 0; i < 100 && Entries(threads) > quietThreads_; ++i)
            Pause(10);
        ::malloc_trim(0);
        std::size_t pages = 0, resident = 0;
        std::ifstream("/proc/self/statm") >> pages >> resident;
        const bool failed = testing::UnitTest::GetInstance()->ad_hoc_test_result().Failed();
        std::ofstream(options_.Figures()) << resident * kilobytesAPage << ' ' << Entries(threads)
                                          << ' ' << Entries("/proc/self/fd") << ' ' << queries_
                                          << ' ' << results_ << ' ' << Faults() + failed;
    }

    const Options options_;
    const test::LoadedComponent component_;
    Reports reports_;
    test::FakeClock clock_;
    test::FakeSettings settings_;
    CountedPtr<IEventStore7> store_;
    std::vector<Producer> producers_;
    unsigned phase_ = 0, capacity_ = 0;
    std::size_t quietThreads_ = 0;
    fs::path victim_;
    std::chrono::steady_clock::time_point start_;
    std::atomic<unsigned> day_{0}, millisecond_{0};  // of the clock
    std::atomic<std::uint32_t> taken_{0};            // rows, by the event queue
    std::atomic<bool> loadEnds_{false}, storeStops_{false}, storeStopped_{false};
    std::atomic<std::uint64_t> queries_{0}, results_{0};
};

}  // namespace

void BearLoad(const Options& options, unsigned firstPhase) {
    testing::InitGoogleTest();
    Load load(options);
    for (unsigned i = 0; i < options.PhasesOfAProcess() && !fs::exists(options.End()); ++i) {
        load.RunPhase(firstPhase + i, i == 0);
        StandStill();
    }
}

}  // namespace ZEL::soak
