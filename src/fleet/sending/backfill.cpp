#include "fleet/sending/backfill.h"

#include <new>
#include <string_view>

#include "common/boundary.h"
#include "common/eventobject.h"
#include "common/hostservices.h"
#include "common/jsontext.h"
#include "common/utctime.h"
#include "common/valuetext.h"
#include "connection/resultwords.h"
#include "fleet/fleettable.h"
#include "fleet/fleettime.h"

// All rows of a run have one receipt, the moment of its beginning: they lie together, and the fleet
// keeps them as long as what comes in today, however old the events are.

namespace zel::fleet {

namespace hr = ZEL::hr;
using ZEL::HRESULT;

namespace {

// On the stack of the walk: its count is not looked at.
class BackfillRows final : public ZEL::IQueryCallback, public ZEL::IQueryRows {
public:
    BackfillRows(const std::string& host, const BatchLimits& limits, RowDelivery& delivery,
                 ISessionListener& listener)
        : host_(host),
          listener_(listener),
          maker_(eventsTable, limits, delivery),
          receipt_{MillisecondsOf(wm::FormatUtc(wm::Clock().UtcNow())).value_or(0), 0} {}

    ZEL::TobResult QueryInterface(const ZEL::GUID& iid, void** out) override {
        *out = iid == ZEL::iidQueryRows ? static_cast<ZEL::IQueryRows*>(this) : nullptr;
        return *out != nullptr ? ZEL::TOB_OK : ZEL::TOBERR_NO_INTERFACE;
    }
    std::int64_t AddRef() override { return 2; }
    std::int64_t Release() override { return 1; }

    HRESULT OnQueryRow(const ZEL::QueryRow& row) override {
        return ZEL::AtBoundary([&] { return Take(row.key, row.text) ? hr::ok : hr::aborted; });
    }
    HRESULT OnQueryResults(HRESULT, ZEL::IValueCollection*, bool, bool, ZEL::IStringValue*,
                           std::int32_t) override {
        return hr::ok;
    }
    bool Finish() { return hasEnded_ ? false : maker_.Give(); }
    std::uint64_t left = 0;  // events that could not be sent

private:
    bool Take(std::string_view key, std::string_view text);

    const std::string& host_;
    ISessionListener& listener_;
    BatchMaker maker_;
    const FleetReceipt receipt_;
    bool hasEnded_ = false;
};

bool BackfillRows::Take(std::string_view key, std::string_view text) {
    if (maker_.IsFull())
        hasEnded_ = !maker_.Give() || listener_.Interrupted();
    if (hasEnded_)
        return false;
    if (AppendEventRow(host_, receipt_, key, text, &maker_.Rows()))
        maker_.EndRow();
    else
        ++left;
    return true;
}

}  // namespace

bool Backfill(ZEL::IEventStore7& store, const std::string& host, const std::string& since,
              const std::string& until, const BatchLimits& limits, RowDelivery& delivery,
              ISessionListener& listener) {
    const std::string document =
        "{\"event_query\":{\"limit_result_count\":-1,\"events\":[{\"begin_time\":{\"value\":" +
        wm::JsonString(since.empty() ? "0000-01-01T00:00:00.000Z" : since) + "}" +
        (until.empty() ? "" : ",\"end_time\":{\"value\":" + wm::JsonString(until) + "}") + "}]}}";
    wm::EventObject stop;
    const auto question = wm::ToValue(document);
    if (!stop.Create(wm::EventReset::manual) || !question)
        throw std::bad_alloc();
    BackfillRows rows(host, limits, delivery, listener);
    const HRESULT asked = store.Query(question.Get(), &rows, stop.Handle());
    const bool isSent = rows.Finish() && delivery.Drain();
    if (rows.left != 0)
        listener.Say(std::to_string(rows.left) + " event(s) can't be sent: they are no UTF-8");
    if (isSent && Failed(asked))
        listener.Say("the store can't be asked: " + Describe(static_cast<std::int32_t>(asked)));
    return isSent && Succeeded(asked) && rows.left == 0;
}

}  // namespace zel::fleet
