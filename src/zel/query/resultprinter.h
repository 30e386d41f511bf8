#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <unordered_set>

#include "zel/query/queryarguments.h"
#include "zel/query/queryplan.h"
#include "zel/terminal/output.h"
#include "zelstore/ieventstore.h"

namespace zel {

// The form of one result after the other.
class ResultForm {
public:
    virtual ~ResultForm() = default;
    virtual std::string Row(const std::string& event, bool isFirst) = 0;
    virtual std::string End(bool /*isEmpty*/) { return ""; }
};

// ndjson, json or table. A table fits `columns`; 0 cuts nothing.
std::unique_ptr<ResultForm> MakeResultForm(const std::string& name, std::size_t columns);

// Columns of the terminal: COLUMNS, else what the terminal on stdout says, else 0.
std::size_t TerminalColumns();

// Prints results as they come. Refuses them, and prints nothing more, once the output can't take
// them or the user has interrupted. Lives on the caller's stack: its count is not looked at. Called
// on the thread of the query.
class ResultPrinter final : public ZEL::IQueryCallback {
public:
    // `store` makes the keys by which rows that come twice are known.
    ResultPrinter(Output& output, ResultForm& form, const QueryPlan& plan, ZEL::IEventStore& store)
        : output_(output), form_(form), plan_(plan), store_(store) {}

    ZEL::TobResult QueryInterface(const ZEL::GUID&, void** out) override {
        *out = nullptr;
        return ZEL::TOBERR_NO_INTERFACE;
    }
    std::int64_t AddRef() override { return 2; }
    std::int64_t Release() override { return 1; }
    ZEL::HRESULT OnQueryResults(ZEL::HRESULT status, ZEL::IValueCollection* results, bool isFinal,
                                bool isComplete, ZEL::IStringValue* resumeTime,
                                std::int32_t resumeSequence) override;

    // False once results are refused. May be asked from any thread.
    bool Wanted() const noexcept;
    std::uint64_t Count() const noexcept { return count_; }
    // False when a limit has cut results off.
    bool Complete() const noexcept { return complete_; }
    // The row behind which a later query may go on; an empty time when there is none.
    const Cursor& Position() const noexcept { return position_; }

private:
    bool IsNew(ZEL::IStringValue* event, const std::string& text);
    void Print(ZEL::IStringValue* event);

    Output& output_;
    ResultForm& form_;
    const QueryPlan& plan_;
    ZEL::IEventStore& store_;
    std::unordered_set<std::string> keys_;  // of what was printed, when rows may come twice
    std::uint64_t count_ = 0;
    bool complete_ = true;
    std::atomic<bool> broken_{false};
    Cursor position_;
};

}  // namespace zel
