#include <gtest/gtest.h>

#include <chrono>
#include <list>

#include "support/client.h"
#include "support/storefixture.h"

// Queries that would run for minutes. Whatever they are busy with, one who ends them does not wait.

namespace ZEL {
namespace {

using test::RecordingCallback;
using test::Str;

constexpr const char* start = R"("begin_time":{"value":"1601-01-01T00:00:00.000Z"})";

std::string Repeat(const std::string& text, int count) {
    std::string all;
    for (int i = 0; i < count; ++i)
        all += (i == 0 ? "" : ",") + text;
    return all;
}

std::string Numbered(const std::string& before, int count, const std::string& behind) {
    std::string all;
    for (int i = 0; i < count; ++i)
        all += (i == 0 ? "" : ",") + before + std::to_string(i) + behind;
    return all;
}

std::string Query(const std::string& subQueries) {
    return R"({"event_query":{"events":[)" + subQueries + "]}}";
}

std::string OnPath(const std::string& op, const std::string& values) {
    return Query("{" + std::string(start) +
                 R"(,"artifacts":{"target":{"object_type":"file","path":{"operator":{"value":")" +
                 op + R"("},"value":[)" + values + "]}}}}");
}

class HostileQuery : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(store->Initialize(), hr::ok);
        const std::string path(3000, 'a');
        for (int i = 0; i < rows; ++i) {
            const std::string key = "p<begin_time>2026-05-01T10:00:00.000Z<sequence>" +
                                    std::to_string(1000000000 + i) +
                                    "<object_type>file<action>create<target_path_name>" + path;
            ASSERT_EQ(store->Insert(Str(key).Get(), Str("{}").Get()), hr::ok);
        }
        ASSERT_EQ(store->Stop(), hr::ok);
    }
    void TearDown() override {
        EXPECT_EQ(store->Stop(), hr::ok);
        EXPECT_EQ(store->Shutdown(), hr::ok);
    }

    // A query lets its callback go after the end call: they live until Shutdown has waited.
    std::list<RecordingCallback> callbacks;

    // What each took is told; a limit only tells an end from none, on whatever machine.
    template <typename Run>
    void EachEnds(const char* how, Run&& run) {
        const std::pair<const char*, std::string> documents[] = {
            {"backtracking", OnPath("fits_pattern", R"("(.*a){20}b")")},
            {"alternatives", OnPath("fits_pattern", "\"(x|" + Alternatives(500) + ")*y\"")},
            {"many expressions", OnPath("fits_pattern", Numbered("\"(a*)*", 10000, "\""))},
            {"wildcards", OnPath("equals", R"("*a*a*a*a*a*b")")},
            {"many wildcards", OnPath("equals", Numbered("\"*%windir%\\\\*a*", 30000, "\""))},
            {"many values", OnPath("contains", Numbered("\"aaaaaaaaaaaaaaaaaaaa", 10000, "\""))},
            {"one long value", OnPath("contains", "\"" + std::string(1500, 'a') + "b\"")},
            {"many sub-queries",
             Query(Repeat("{" + std::string(start) + R"(,"correlation_uid":{"value":["x"]}})",
                          10000))},
            {"a long document", Query("{\"x\":[" + Repeat("1", 2000000) + "]}")},
        };
        for (const auto& [name, document] : documents) {
            ASSERT_TRUE(Succeeded(store->Initialize()));
            RecordingCallback& callback = callbacks.emplace_back();
            const auto text = Str(document);
            const auto begin = std::chrono::steady_clock::now();
            run(text.Get(), callback);
            const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
            std::printf("%s, %s: %.3f s\n", how, name, took.count());
            EXPECT_LT(took.count(), 20) << how << ", " << name;
            EXPECT_EQ(callback.ends, 1);
            EXPECT_EQ(callback.texts.size(), 0u);
        }
    }

    static constexpr int rows = 2500;
    const test::TempStore directory;
    const test::LoadedComponent component;
    const CountedPtr<IEventStore7> store = component.Store();

private:
    static std::string Alternatives(int count) {
        std::string all;
        for (int i = 0; i < count; ++i)
            all += (i == 0 ? "" : "|") + std::string("a+a+") + std::string(40, 'a') +
                   std::to_string(i);
        return all;
    }
};

TEST_F(HostileQuery, IsEndedByItsStopEvent) {
    EachEnds("stop event", [&](IStringValue* document, RecordingCallback& callback) {
        wm::EventObject stop;
        ASSERT_TRUE(stop.Create(wm::EventReset::manual, wm::EventState::set));
        IgnoreResult(store->Query(document, &callback, stop.Handle()), "it may have been cut off");
    });
}

TEST_F(HostileQuery, IsEndedByACancel) {
    EachEnds("cancel", [&](IStringValue* document, RecordingCallback& callback) {
        const auto query = component.Query();
        ASSERT_EQ(query->Start(document, &callback), hr::ok);
        EXPECT_EQ(query->StopAndWait(), hr::ok);
    });
}

TEST_F(HostileQuery, IsEndedByTheStoresEnd) {
    EachEnds("end of the store", [&](IStringValue* document, RecordingCallback& callback) {
        const auto query = component.Query();
        ASSERT_EQ(query->Start(document, &callback), hr::ok);
        EXPECT_EQ(store->Stop(), hr::ok);
        callback.AwaitEnd();  // as Shutdown would, behind which there is nothing to walk
    });
}

}  // namespace
}  // namespace ZEL
