#include "zelstore/database/errortable.h"

namespace ZEL {

void ErrorTable::Record(const std::wstring& path, DatabaseErrorKind kind, HRESULT result) {
    if (path.empty())
        return;
    const auto index = static_cast<std::uint32_t>(kind);
    const wm::Hold hold(lock_);
    const auto [record, isNew] = records_.try_emplace(path);
    DatabaseErrorEntry& entry = record->second.entries[index];
    // Hosts know this form: the entry of a kind that fails later than another has no operation.
    if (isNew)
        entry.operation = index + 1;
    ++entry.count;
    entry.lastResult = result;
}

void ErrorTable::CopyTo(DatabaseErrorTable* out) const {
    const wm::Hold hold(lock_);
    *out = records_;
}

void ErrorTable::Clear() {
    DatabaseErrorTable cleared;  // freed after the lock is released
    const wm::Hold hold(lock_);
    records_.swap(cleared);
}

}  // namespace ZEL
