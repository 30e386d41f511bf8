#include "connection/databaseerror.h"

#include <utility>

#include "common/countedptr.h"
#include "common/valuetext.h"
#include "connection/resultwords.h"

// The store hands its failures out as rows of texts and numbers, whose order is part of its
// interface. Here they become values with names, for all who tell or sort them. A number that a
// row does not have stays 0: an entry is worth telling even in part.

namespace zel {

const char* DatabaseError::Operation() const {
    constexpr const char* operations[] = {"use", "open", "read", "write"};
    return operations[operation % 4];
}

std::string DatabaseError::Text() const {
    return "folder " + folder + ": " + std::to_string(count) + " failure(s) to " + Operation() +
           ", the last: " + Describe(lastResult);
}

// The records of the table are rows of values; their order is told with GetDatabaseErrors.
bool ReadDatabaseErrors(ZEL::IEventStore& store, std::vector<DatabaseError>* errors) {
    ZEL::CountedPtr<ZEL::IValueCollection> list;
    if (Failed(store.GetDatabaseErrors(list.Receive())) || !list)
        return false;
    for (std::size_t i = 0; i < list->Count(); ++i) {
        ZEL::IValueRecord& record = *list->GetRecord(i);
        DatabaseError error;
        std::uint32_t result = 0;
        error.folder = wm::ToText(record.GetText(0));
        record.GetNumber(1, &error.operation);
        record.GetNumber(2, &error.count);
        record.GetNumber(3, &result);
        error.lastResult = static_cast<std::int32_t>(result);
        errors->push_back(std::move(error));
    }
    return true;
}

}  // namespace zel
