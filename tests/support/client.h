#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "common/countedptr.h"
#include "common/filesystem.h"
#include "common/hostservices.h"
#include "common/itobfactory.h"
#include "common/textbridge.h"
#include "support/system.h"
#include "zelstore/ieventstore.h"
#include "zelstore/izelstorequery.h"

// What a host of the store needs: string values, a callback that keeps what it hears, and the
// component, loaded.
namespace ZEL::test {

inline CountedPtr<IStringValue> Str(std::string_view utf8) {
    std::wstring wide;
    EXPECT_TRUE(wm::ToWide(utf8, wide));
    return CountedPtr<IStringValue>::Adopt(wm::CreateStringValue(std::wstring_view(wide)));
}

inline std::string Utf8(IStringValue* value) {
    std::string text;
    EXPECT_TRUE(value == nullptr || wm::ToUtf8({value->GetText(), value->GetLength(0)}, text));
    return text;
}

// Lives on the stack of a test: its count is not looked at. What it keeps is to be read behind the
// query's end.
class RecordingCallback final : public IQueryCallback, public IQueryBatches {
public:
    RecordingCallback() { EXPECT_TRUE(ended_->Create(wm::EventReset::manual)); }

    TobResult QueryInterface(const GUID& iid, void** out) override {
        *out = iid == iidQueryBatches ? static_cast<IQueryBatches*>(this) : nullptr;
        return *out != nullptr ? TOB_OK : TOBERR_NO_INTERFACE;
    }
    std::int64_t AddRef() override { return 2; }
    std::int64_t Release() override { return 1; }
    std::uint32_t MostResults() override { return mostResults; }
    HRESULT OnQueryResults(HRESULT status, IValueCollection* results, bool isFinal, bool isComplete,
                           IStringValue* resumeTime, std::int32_t resumeSequence) override {
        if (isFinal) {
            ++ends;
            endStatus = status;
            complete = isComplete;
            EXPECT_EQ(results, nullptr);
            if (onEnd)
                onEnd();
            ended_->Set();
            return hr::ok;
        }
        batches.push_back(results->Count());
        for (std::size_t i = 0; i < results->Count(); ++i)
            texts.push_back(Utf8(results->GetValue(i)));
        cursors.emplace_back(Utf8(resumeTime), resumeSequence);
        if (onBatch)
            onBatch(batches.size());
        return batchAnswer;
    }
    // For a query on another thread; the test's own time limit ends a wait in vain.
    void AwaitEnd() const {
        const HANDLE handle = ended_->Handle();
        EXPECT_EQ(wm::WaitForAny(1, &handle, wm::waitForever), 0u);
    }

    std::uint32_t mostResults = 0;             // of a batch; 0: as the store likes
    std::function<void(std::size_t)> onBatch;  // told the number of batches so far
    std::function<void()> onEnd;
    int ends = 0;
    HRESULT endStatus = hr::fail;
    bool complete = false;
    HRESULT batchAnswer = hr::ok;
    std::vector<std::size_t> batches;
    std::vector<std::string> texts;
    std::vector<std::pair<std::string, std::int32_t>> cursors;

private:
    std::shared_ptr<wm::EventObject> ended_ = std::make_shared<wm::EventObject>();
};

// The component as a host sees it.
class LoadedComponent {
public:
    LoadedComponent() {
        std::wstring directory;
        EXPECT_TRUE(wm::InstallDirectory(directory));
        const std::wstring component = wm::JoinPath(directory, L"ZELStore");
        getFactory = reinterpret_cast<GetFactoryFunction>(ExportOf(component, "GetFactory"));
        getObjectCount =
            reinterpret_cast<GetObjectCountFunction>(ExportOf(component, "GetObjectCount"));
    }

    CountedPtr<ITobFactory2> Factory(const GUID& objectId = eventStoreObjectId) const {
        ITobFactory* factory = nullptr;
        EXPECT_EQ(getFactory(objectId, &factory), TOB_OK);
        return CountedPtr<ITobFactory2>::Adopt(static_cast<ITobFactory2*>(factory));
    }
    CountedPtr<IEventStore7> Store() const {
        CountedPtr<IEventStore7> store;
        EXPECT_EQ(Factory()->CreateInstance(iidEventStore7, store.ReceiveVoid()), TOB_OK);
        return store;
    }
    CountedPtr<IZelStoreQuery2> Query() const {
        CountedPtr<IZelStoreQuery2> query;
        EXPECT_EQ(
            Factory(eventsQueryObjectId)->CreateInstance(iidZelStoreQuery2, query.ReceiveVoid()),
            TOB_OK);
        return query;
    }

    GetFactoryFunction getFactory = nullptr;
    GetObjectCountFunction getObjectCount = nullptr;
};

// An event record as a sensor sends it: a file event at `time`.
inline std::string FileEvent(const std::string& time, int sequence, const char* action = "create",
                             const std::string& path = "C:\\\\temp\\\\a.txt") {
    return R"({"artifacts":{"target":{"object_type":"file","path":{"value":[")" + path +
           R"("]}}},"action":[")" + action + R"("],"begin_time":{"value":")" + time +
           R"("},"seq_num":)" + std::to_string(sequence) + "}";
}

// Makes the record's key and inserts the record; gives the key.
inline std::string InsertEvent(IEventStore7& store, const std::string& record) {
    const auto text = Str(record);
    CountedPtr<IStringValue> key;
    EXPECT_EQ(store.MakeKey(text.Get(), keyKindEvent, key.Receive()), hr::ok) << record;
    EXPECT_EQ(store.Insert(key.Get(), text.Get()), hr::ok);
    return Utf8(key.Get());
}

inline HRESULT RunQuery(IEventStore7& store, const std::string& document,
                        RecordingCallback& callback) {
    wm::EventObject stop;
    EXPECT_TRUE(stop.Create(wm::EventReset::automatic));
    const auto text = Str(document);
    const HRESULT result = store.Query(text.Get(), &callback, stop.Handle());
    EXPECT_EQ(callback.ends, 1);
    EXPECT_EQ(callback.endStatus, result);
    return result;
}

}  // namespace ZEL::test
