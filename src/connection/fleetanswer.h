#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "connection/fleetdelivery.h"
#include "connection/fleetuse.h"
#include "fleet/answerrow.h"
#include "fleet/fleetclient.h"
#include "fleet/fleetquestion.h"
#include "zelstore/ieventstore.h"

namespace zel {

// One question to a fleet's server, from its document to the last call back but the final one. Used
// once, on its caller's thread.
class FleetAnswer {
public:
    FleetAnswer(const fleet::FleetAddress& address, const std::vector<std::string>& hosts,
                ZEL::IQueryCallback& callback, ZEL::HANDLE stop);

    // The query's result.
    ZEL::HRESULT Give(const std::string& document);
    // False when the document's limit has ended it.
    bool IsComplete() const noexcept { return isComplete_; }
    // What people should know of a result that is a failure; empty for none.
    const std::string& Problem() const noexcept { return problem_; }

private:
    bool IsOver(std::uint32_t waitMs = 0);
    void GiveStep();
    bool GivePage(std::uint64_t rows);
    bool TakeLine(std::string_view line);
    bool TakeRow();
    bool GiveWaiting();
    bool Give(const fleet::FleetRow& row, std::string_view text);
    bool AsksAgain(const fleet::FleetFailure& failure);
    std::uint64_t RowsToAsk(std::uint64_t most) const;
    bool End(ZEL::HRESULT result, std::string problem = "");

    const ZEL::HANDLE stop_;
    fleet::FleetScope scope_;
    fleet::FleetClient client_;
    fleet::FleetClient joinClient_;  // for enrichments, while an answer is under way on the other
    FleetDelivery delivery_;
    std::unique_ptr<fleet::FleetQuestion> question_;
    fleet::FleetRowReader reader_;

    std::size_t step_ = 0;
    fleet::FleetRow row_, last_;            // the one in hand, and the last one that came
    bool hasLast_ = false;                  // in this step
    std::uint64_t came_ = 0;                // rows of this page
    std::uint64_t given_ = 0;               // rows of the answer
    std::vector<fleet::FleetRow> waiting_;  // for their enrichments
    std::size_t waitingBytes_ = 0;
    unsigned failures_ = 0;  // since a row has come

    bool hasEnded_ = false, isStopped_ = false, isComplete_ = true;
    ZEL::HRESULT result_ = ZEL::hr::ok;
    std::string problem_;
};

}  // namespace zel
