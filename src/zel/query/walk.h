#pragma once

#include <cstdint>
#include <string>

#include "common/eventobject.h"
#include "common/hostservices.h"
#include "common/lock.h"
#include "connection/storesession.h"
#include "zel/query/queryplan.h"
#include "zel/query/resultintake.h"

// How the store is asked for the rows of one answer.
namespace zel {

// Stands ahead of the host's report sink while it lives, and counts the rows that the store could
// not test: it reports each of them. Any thread.
class LostRows final : public wm::IErrorReportSink {
public:
    LostRows();
    ~LostRows() override;
    LostRows(const LostRows&) = delete;
    LostRows& operator=(const LostRows&) = delete;

    void OnReport(const wm::ErrorReport& report) override;
    void Forget();
    // False when there are any.
    bool Tell() const;

private:
    mutable wm::Lock lock_;
    std::uint64_t count_ GUARDED_BY(lock_) = 0;
    std::string why_ GUARDED_BY(lock_);
};

// Asks until enough was handed on or there is nothing more, on the caller's thread. Where the
// answer is no longer wanted the walk is stopped; what then failed is for the intake to tell from
// the rest. `newest`: so many of the newest events are wanted; negative: all, from the oldest on.
// The store's result.
ZEL::HRESULT Walk(const QueryPlan& plan, std::int64_t newest, StoreSession& store,
                  ResultIntake& intake, LostRows& lostRows);

}  // namespace zel
