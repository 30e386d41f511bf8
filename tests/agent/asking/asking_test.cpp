#include <fstream>

#include "agent/asking/tinyagent.h"
#include "connection/agentrequest.h"
#include "connection/databaseerror.h"
#include "connection/remotestore.h"
#include "connection/rowframes.h"
#include "support/client.h"
#include "support/storefixture.h"

namespace zel {
namespace {

using test::TinyAgent;
using ZEL::hr::aborted;
using ZEL::test::RecordingCallback;
using ZEL::test::RunQuery;
using ZEL::test::Str;

class Silent final : public ISessionListener {
public:
    void Say(const std::string& text) override { said.push_back(text); }
    bool Interrupted() noexcept override { return false; }

    std::vector<std::string> said;
};

// A store at work with 250 events, a second from 10:00:00 on each, a row of receipt for each tenth,
// and a folder that is no database; and the same store behind a socket.
class AskingTest : public testing::Test {
protected:
    void SetUp() override {
        directory_.MakeFolder("20250101");
        directory_.WriteFile("20250101/CURRENT", "nonsense");
        directory_.WriteFile("20250101/000005.ldb", "");
        ASSERT_EQ(store_->Initialize(), ZEL::hr::ok);
        Add(0, 250);
        ASSERT_EQ(store_->Stop(), ZEL::hr::ok);
    }
    void TearDown() override {
        agent_.reset();
        questions_.reset();
        EXPECT_EQ(store_->Stop(), ZEL::hr::ok);
        EXPECT_EQ(store_->Shutdown(), ZEL::hr::ok);
    }
    void Begin(QuestionLimits limits = {}) {
        questions_ = std::make_unique<Questions>(*store_, limits, &reports_);
        agent_ = std::make_unique<TinyAgent>(directory_.Path().string(), questions_.get());
        remote_ = MakeRemoteStore(agent_->path, listener_, store_);
    }
    void Add(int from, int count) {
        for (int i = from; i < from + count; ++i) {
            const std::string key =
                ZEL::test::InsertEvent(*store_, ZEL::test::FileEvent(Time(i), i));
            if (i % 10 != 0)
                continue;
            const auto receiptKey = Str("r<receive_time>" + Time(i) + "<sequence>0000000001");
            const auto receipt = Str(R"({"event_pkey":")" + key + "\"}");
            ASSERT_EQ(store_->Insert(receiptKey.Get(), receipt.Get()), ZEL::hr::ok);
        }
    }
    static std::string Time(int i) {
        char text[64];
        std::snprintf(text, sizeof(text), "2026-05-01T10:%02d:%02d.000Z", i / 60, i % 60);
        return text;
    }
    static std::string Document(const std::string& more = "", const std::string& rest = "") {
        return R"({"event_query":{"events":[{"begin_time":{"value":"2026-01-01T00:00:00.000Z"})" +
               more + "}]" + rest + "}}";
    }
    void AwaitQuiet() const {
        while (questions_->Count().running != 0)
            std::this_thread::yield();
    }

    ZEL::test::TempStore directory_;
    const ZEL::test::LoadedComponent component_;
    const ZEL::CountedPtr<ZEL::IEventStore7> store_ = component_.Store();
    ZEL::test::RecordingReports reports_;
    Silent listener_;
    std::unique_ptr<Questions> questions_;
    std::atomic<int> begun_{0};
    std::ptrdiff_t lines_ = 0;
    std::unique_ptr<TinyAgent> agent_;
    ZEL::CountedPtr<ZEL::IEventStore7> remote_;
};

struct Heard {
    RecordingCallback callback;
    ZEL::HRESULT result = ZEL::hr::ok;
    std::vector<DatabaseError> errors;
};

void Ask(ZEL::IEventStore7& store, const std::string& document, Heard* heard) {
    EXPECT_EQ(store.ClearDatabaseErrors(), ZEL::hr::ok);
    heard->result = RunQuery(store, document, heard->callback);
    EXPECT_TRUE(ReadDatabaseErrors(store, &heard->errors));
}

// Rows that could not be tested: as the store reports them, one by one, and as the client does.
std::size_t Untested(const ZEL::test::RecordingReports& reports, bool ofClient) {
    std::size_t count = 0;
    for (std::size_t i = 0; i < reports.Count(); ++i) {
        const wm::ErrorReport report = reports.At(i);
        if (report.Label() == wm::reportLabel::lostRow)
            count += report.Details().size() == 1 ? !ofClient
                     : ofClient                   ? std::stoul(report.Details()[1].second)
                                                  : 0;
    }
    return count;
}

TEST_F(AskingTest, AnswersAreThoseOfTheStoreItself) {
    const std::string target =
        R"(,"artifacts":{"target":{"object_type":"file","path":{"operator":{"value":"fits_pattern"},"value":["(a"]}}})";
    const std::string documents[] = {
        Document(),
        Document("", R"(,"limit_result_count":120)"),
        Document(R"(,"action":["delete"])"),
        R"({"event_query":{"events":[{"receive_time":{"value":"2026-01-01T00:00:00.000Z"}}]}})",
        Document(target),
        Document(R"(},{"action":["create"])"),
        "{",
        "[]",
    };
    Begin();
    for (const std::string& document : documents) {
        Heard expected, got;
        Ask(*store_, document, &expected);
        Ask(*remote_, document, &got);
        EXPECT_EQ(got.result, expected.result) << document;
        EXPECT_EQ(got.callback.texts, expected.callback.texts) << document;
        EXPECT_EQ(got.callback.batches, expected.callback.batches) << document;
        EXPECT_EQ(got.callback.cursors, expected.callback.cursors) << document;
        EXPECT_EQ(got.callback.complete, expected.callback.complete) << document;
        EXPECT_EQ(got.errors, expected.errors) << document;
    }
    // The store reported its own walk and the agent's.
    EXPECT_EQ(Untested(reports_, false), 500u);
    EXPECT_EQ(Untested(reports_, true), 250u);
}

// Its walk waits in the midst, and neither the writer nor other questions wait for it.
TEST_F(AskingTest, ASlowReaderSlowsItsOwnQuestionAlone) {
    Begin({.buffer = 1});
    const auto slow = questions_->Ask({Document(), AnswerForm::lines});
    slow->WhenReady([&] { ++begun_; });
    while (begun_ == 0)
        std::this_thread::yield();
    Add(250, 600);
    EXPECT_EQ(store_->Stop(), ZEL::hr::ok);
    RecordingCallback other;
    EXPECT_EQ(RunQuery(*remote_, Document(), other), ZEL::hr::ok);
    EXPECT_EQ(other.texts.size(), 850u);
    EXPECT_GE(questions_->Count().running, 1u);
    std::string all, bytes;
    while (slow->Take(&bytes))
        all += bytes;
    EXPECT_GE(std::count(all.begin(), all.end(), '\n'), 201);
    EXPECT_THAT(all, testing::HasSubstr("\n{\"end\":true"));
}

TEST_F(AskingTest, AQuestionEndsWithItsAsker) {
    Begin({.buffer = 1});
    RecordingCallback refusing;
    refusing.batchAnswer = ZEL::hr::fail;
    EXPECT_EQ(RunQuery(*remote_, Document(), refusing), aborted);
    EXPECT_EQ(refusing.batches.size(), 1u);
    AwaitQuiet();

    wm::EventObject stop;
    ASSERT_TRUE(stop.Create(wm::EventReset::automatic));
    RecordingCallback stopped;
    stopped.onBatch = [&](std::size_t) { stop.Set(); };
    EXPECT_EQ(remote_->Query(Str(Document()).Get(), &stopped, stop.Handle()), aborted);
    EXPECT_EQ(stopped.batches.size(), 1u);
    EXPECT_EQ(stopped.ends, 1);
    AwaitQuiet();
    EXPECT_TRUE(listener_.said.empty());
}

// As programs of others see it: lines, and one that tells the end. Who reads nothing is not waited
// for.
TEST_F(AskingTest, LinesEndWithOneThatTellsHow) {
    Begin({.stall = std::chrono::seconds(0), .buffer = 1});
    const auto lastOf = [&](AskedQuestion question, bool reads) {
        question.form = AnswerForm::lines;
        const auto stream = questions_->Ask(std::move(question));
        std::string all, bytes;
        if (!reads)
            stream->WhenReady([&] { ++begun_; });
        while (!reads && begun_ == 0)
            std::this_thread::yield();
        if (!reads)
            AwaitQuiet();
        while (stream->Take(&bytes))
            all += bytes;
        lines_ = std::count(all.begin(), all.end(), '\n');
        return all.substr(all.rfind('\n', all.size() - 2) + 1);
    };
    const std::string nothingMissing =
        R"("not_read":[{"folder":"20250101","operation":"read","why":)";
    EXPECT_THAT(lastOf({Document(R"(,"action":["delete"])")}, true),
                testing::StartsWith(R"({"end":true,"truncated":false,)" + nothingMissing));
    EXPECT_EQ(lines_, 1);
    EXPECT_THAT(lastOf({Document(), {}, 7}, true),
                testing::StartsWith(R"({"end":true,"truncated":true,"not_read")"));
    EXPECT_EQ(lines_, 8);
    EXPECT_THAT(lastOf({"{"}, true), testing::HasSubstr(R"("reason":"not understood)"));
    EXPECT_THAT(lastOf({Document()}, false), testing::HasSubstr("nothing was read for too long"));
    EXPECT_EQ(lines_, 101);
    questions_->Stop();
    EXPECT_EQ(questions_->Ask({Document()}), nullptr);
}

// Counted where they stand; the walk ends with who asked for it.
TEST_F(AskingTest, AQuestionMayMakeItsAnswerOfRows) {
    Begin();
    const auto answerOf = [&](std::function<void(QuestionWork&)> work, bool isRefused) {
        AskedQuestion question;
        question.work = std::move(work);
        const auto stream = questions_->Ask(std::move(question));
        std::string all, bytes;
        while (stream->Take(&bytes))
            all += bytes;
        EXPECT_EQ(stream->IsRefusal(), isRefused) << all;
        return all;
    };
    const auto count = [](QuestionWork& work) {
        int rows = 0;
        const auto onRow = [&](const ZEL::QueryRow& row) {
            rows += row.key.starts_with("p<begin_time>2026-05-01") ? 1 : 0;
            return ZEL::hr::ok;
        };
        for (int i = 0; i < 2; ++i)
            EXPECT_EQ(work.Walk(Document(), onRow), ZEL::hr::ok);
        work.Write(std::to_string(rows) + work.NotRead());
    };
    EXPECT_THAT(answerOf(count, false), testing::StartsWith(R"(500[{"folder":"20250101",)"));
    EXPECT_EQ(answerOf([](QuestionWork& work) { work.Refuse("no"); }, true), "no");

    std::atomic<AnswerStream*> asker{nullptr};
    std::atomic<bool> isDone{false};
    AskedQuestion left;
    int seen = 0;
    left.work = [&](QuestionWork& work) {
        while (asker == nullptr)
            std::this_thread::yield();
        const auto onRow = [&](const ZEL::QueryRow&) {
            ++seen;
            asker.load()->Cancel();
            return ZEL::hr::ok;
        };
        ZEL::IgnoreResult(work.Walk(Document(), onRow), "it was ended");
        EXPECT_TRUE(work.IsOver());
        EXPECT_FALSE(work.Write("x"));
        EXPECT_EQ(work.Walk(Document(), onRow), aborted);
        isDone = true;
    };
    const auto stream = questions_->Ask(std::move(left));
    asker = stream.get();
    while (!isDone)
        std::this_thread::yield();
    EXPECT_EQ(seen, 1);
    AwaitQuiet();
}

TEST(AskingHostile, WhatIsNoAnswerIsALossAndNoHang) {
    ZEL::test::TempStore directory;
    const ZEL::test::LoadedComponent component;
    const std::string head = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
    std::string rows;
    frames::Writer(frames::Type::rows, &rows).Text("").Number(0).Number(3).Text("{}");
    const auto chunk = [](const std::string& bytes) {
        char size[24];
        std::snprintf(size, sizeof(size), "%zx\r\n", bytes.size());
        return size + bytes + "\r\n";
    };
    const std::string answers[] = {
        "garbage\r\n\r\n",
        std::string(100000, 'x'),
        "HTTP/1.1 200 OK\r\n",
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: gzip\r\n\r\n",
        head,
        head + "zz\r\n",
        head + "ffffffffffffffffffff\r\n",
        head + "5\r\nr\x01",
        head + "0\r\n\r\n",
        head + chunk(std::string("r\xff\xff\xff\xff", 5)),
        head + chunk(std::string("q\0\0\0\0", 5)) + "0\r\n\r\n",
        head + chunk(rows) + "0\r\n\r\n",
        head + chunk(std::string("e\x02\0\0\0ab", 7)) + "0\r\n\r\n",
        "HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nr",
    };
    for (const std::string& canned : answers) {
        Silent listener;
        RecordingCallback heard;
        TinyAgent agent(directory.Path().string(), nullptr);
        agent.canned = canned;
        const auto remote = MakeRemoteStore(agent.path, listener, component.Store());
        EXPECT_EQ(RunQuery(*remote, "{}", heard), agentResult::lost) << canned.substr(0, 80);
        EXPECT_EQ(listener.said.size(), 1u) << canned.substr(0, 80);
        EXPECT_TRUE(heard.texts.empty());
        std::filesystem::remove(agent.path);
    }
}

TEST(AskingHostile, RefusalsAreToldInTheAgentsWords) {
    const std::pair<std::string, ZEL::HRESULT> refusals[] = {
        {"403 Forbidden", ZEL::hr::accessDenied},
        {"503 Busy", agentResult::busy},
        {"400 Bad", ZEL::hr::invalidArgument},
        {"500 Oops", ZEL::hr::fail}};
    ZEL::test::TempStore directory;
    const ZEL::test::LoadedComponent component;
    for (const auto& [status, result] : refusals) {
        Silent listener;
        RecordingCallback heard;
        TinyAgent agent(directory.Path().string(), nullptr);
        agent.canned = "HTTP/1.1 " + status + "\r\nContent-Length: 12\r\n\r\nnot\x1b allowed";
        const auto remote = MakeRemoteStore(agent.path, listener, component.Store());
        EXPECT_EQ(RunQuery(*remote, "{}", heard), result);
        EXPECT_EQ(listener.said, (std::vector<std::string>{"the agent refuses: not? allowed"}));
        std::filesystem::remove(agent.path);
    }
    Silent listener;
    RecordingCallback heard;
    const auto nobody = MakeRemoteStore("/nowhere/agent.sock", listener, component.Store());
    EXPECT_EQ(RunQuery(*nobody, "{}", heard), agentResult::lost);
}

}  // namespace
}  // namespace zel
