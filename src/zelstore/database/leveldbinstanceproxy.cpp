#include "zelstore/database/leveldbinstanceproxy.h"

#include "common/filesystem.h"
#include "zelstore/database/foldergate.h"
#include "zelstore/database/foldermemory.h"
#include "zelstore/database/leveldbinstance.h"

// Whoever drops the last pointer to an instance closes the database, which may take long. So
// pointers are moved out of here under the lock and dropped after it is released.
//
// Writing. Behind a batch that failed the library refuses all others, or appends them to a log
// where nobody will find them: after half a batch the next start of that log reads no further. So
// each failure ends the instance for writers. The folder is closed and opened anew, which reads the
// log up to the failed batch, and the batch is written once more. That is all a disk needs that was
// full for a moment; the folder is broken when both attempts fail and neither has met a lack of
// anything. While a query reads the folder it can't be closed; another one has to be written then.

namespace ZEL {

namespace {

std::uint64_t BatchBytes(const RecordBatch& batch) noexcept {
    std::uint64_t bytes = 0;
    for (const auto& [key, value] : batch)
        bytes += key.size() + value.size();
    return bytes;
}

}  // namespace

LevelDbInstanceProxy::LevelDbInstanceProxy(std::wstring path, StoreUse use)
    : use_(use),
      path_(std::move(path)),
      store_(StoreOfPath(path_)),
      date_(DateFromPath(path_)),
      number_(NumberFromPath(path_)),
      memory_(std::make_shared<FolderMemory>(path_)) {
    RecountSize();
}

LevelDbInstanceProxy::~LevelDbInstanceProxy() = default;

std::shared_ptr<LevelDbInstance> LevelDbInstanceProxy::PeekInstance() {
    const wm::Hold hold(lock_);
    return PeekInstanceLocked();
}

std::shared_ptr<LevelDbInstance> LevelDbInstanceProxy::PeekInstanceLocked() {
    return heldInstance_ ? heldInstance_ : instance_.lock();
}

HRESULT LevelDbInstanceProxy::GetInstance(std::shared_ptr<LevelDbInstance>* out,
                                          IfMissing ifMissing) {
    out->reset();
    const wm::Hold hold(lock_);
    *out = PeekInstanceLocked();
    if (*out)
        return hr::ok;
    return ifMissing == IfMissing::fail && MustReadAlone() ? GetReaderLocked(out)
                                                           : CreateInstanceLocked(out, ifMissing);
}

// What LevelDB writes when it opens a database, with the compaction that may follow, fits in the
// room that is kept free for it.
bool LevelDbInstanceProxy::MustReadAlone() const {
    return use_ == StoreUse::readAlone || !HasRoomFor(store_, 0) || !wm::CanMakeFilesIn(path_);
}

HRESULT LevelDbInstanceProxy::GetReaderLocked(std::shared_ptr<LevelDbInstance>* out) {
    *out = reader_.lock();
    if (*out)
        return hr::ok;
    if (IsGone())
        return hr::notFound;
    auto fresh = std::make_shared<LevelDbInstance>(path_);
    const HRESULT result = fresh->OpenForReading();
    if (Failed(result))
        return result;
    reader_ = fresh;
    *out = std::move(fresh);
    return hr::ok;
}

HRESULT LevelDbInstanceProxy::GetInstanceLocked(std::shared_ptr<LevelDbInstance>* out,
                                                IfMissing ifMissing) {
    *out = PeekInstanceLocked();
    if (*out)
        return hr::ok;
    return use_ == StoreUse::readAlone ? GetReaderLocked(out)
                                       : CreateInstanceLocked(out, ifMissing);
}

HRESULT LevelDbInstanceProxy::CreateInstanceLocked(std::shared_ptr<LevelDbInstance>* out,
                                                   IfMissing ifMissing) {
    if (IsGone())
        return hr::notFound;
    auto fresh = std::make_shared<LevelDbInstance>(path_, memory_);
    const HRESULT result = fresh->Open(ifMissing);
    if (Failed(result))
        return result;
    instance_ = fresh;
    // Who comes from here on gets the instance that is written, not what the folder was before.
    reader_.reset();
    *out = std::move(fresh);
    return hr::ok;
}

std::shared_ptr<const FolderFacts> LevelDbInstanceProxy::Recall() {
    return IsGone() ? nullptr : memory_->Recall();
}

HRESULT LevelDbInstanceProxy::Hold(IfMissing ifMissing) {
    std::shared_ptr<LevelDbInstance> local;
    const wm::Hold hold(lock_);
    const HRESULT result = GetInstanceLocked(&local, ifMissing);
    if (Failed(result))
        return result;
    // Holds are counted, and all keep one instance.
    if (!heldInstance_)
        heldInstance_ = std::move(local);
    ++holdCount_;
    return hr::ok;
}

void LevelDbInstanceProxy::Release(Cursor cursor) {
    std::shared_ptr<LevelDbInstance> closing;
    const wm::Hold hold(lock_);
    if (cursor == Cursor::drop && heldInstance_)
        heldInstance_->ReleaseCursor();
    if (holdCount_ == 0 || --holdCount_ == 0)
        closing.swap(heldInstance_);
}

HRESULT LevelDbInstanceProxy::Write(const RecordBatch& batch) {
    // Opening a database on a full volume would fail like a broken device.
    if (!HasRoomFor(store_, BatchBytes(batch)))
        return hr::diskFull;
    if (!wm::CanOpenFiles(handlesOfADatabase))
        return hr::tooManyOpenFiles;
    const wm::Hold hold(writeLock_);
    const HRESULT first = WriteOnce(batch);
    // Another process, or a reader of this one, has the folder: a second attempt would meet it
    // again.
    if (Succeeded(first) || first == hr::sharingViolation || IsGone())
        return first;
    // Should the batch be in the log already, the same rows stand there twice, which is once.
    const HRESULT second = WriteOnce(batch);
    return Succeeded(second) || TellsBrokenDatabase(first) ? second : first;
}

HRESULT LevelDbInstanceProxy::WriteOnce(const RecordBatch& batch) {
    std::shared_ptr<LevelDbInstance> local;
    const HRESULT result = GetSoundInstance(&local);
    if (Failed(result))
        return result;
    recordsSinceCount_.fetch_add(batch.size(), std::memory_order_relaxed);
    return local->Write(batch);
}

HRESULT LevelDbInstanceProxy::GetSoundInstance(std::shared_ptr<LevelDbInstance>* out) {
    const wm::Hold hold(lock_);
    if (IsGone())
        return hr::notFound;
    *out = PeekInstanceLocked();
    if (*out && !(*out)->IsBroken())
        return hr::ok;
    // Closed here, under the lock, so that no reader comes in between.
    out->reset();
    heldInstance_.reset();
    std::shared_ptr<LevelDbInstance> ofReader = instance_.lock();
    isHeldByReader_.store(ofReader != nullptr, std::memory_order_relaxed);
    const HRESULT result =
        ofReader ? hr::sharingViolation : CreateInstanceLocked(out, IfMissing::create);
    if (holdCount_ > 0)
        heldInstance_ = ofReader ? std::move(ofReader) : *out;
    return result;
}

void LevelDbInstanceProxy::MarkForDeletion() {
    std::shared_ptr<LevelDbInstance> local;
    const wm::Hold hold(lock_);
    // By a second time another database may stand in the folder's place.
    if (isGone_.exchange(true, std::memory_order_acq_rel))
        return;
    local = PeekInstanceLocked();
    if (local) {
        local->DeleteOnClose();
        return;
    }
    const std::shared_ptr<FolderGate> gate = FolderGate::For(path_);
    const wm::Hold closed(gate->lock);
    gate->AwaitClosed();
    gate->Remove();
}

void LevelDbInstanceProxy::RecountSize() noexcept {
    const std::uint64_t bytes = wm::CountFiles(path_, L".ldb") * bytesPerTableFile;
    // Once at its limit, a further count would change nothing.
    const bool isFull = bytes >= databaseLimitBytes;
    // Half of what may be written before the database reaches the ceiling.
    const std::uint64_t budget = isFull ? 0 : (recountCeilingBytes - bytes) / bytesPerRecord / 2;
    recordsSinceCount_.store(0, std::memory_order_relaxed);
    estimatedBytes_.store(bytes, std::memory_order_relaxed);
    recountBudget_.store(budget, std::memory_order_relaxed);
}

std::uint64_t LevelDbInstanceProxy::EstimatedBytes() const noexcept {
    return estimatedBytes_.load(std::memory_order_relaxed);
}

std::uint64_t LevelDbInstanceProxy::RecordsSinceCount() const noexcept {
    return recordsSinceCount_.load(std::memory_order_relaxed);
}

std::uint64_t LevelDbInstanceProxy::RecountBudget() const noexcept {
    return recountBudget_.load(std::memory_order_relaxed);
}

std::uint64_t EstimatedSize(LevelDbInstanceProxy& proxy) noexcept {
    const std::uint64_t records = proxy.RecordsSinceCount();
    const std::uint64_t budget = proxy.RecountBudget();
    if (records == 0)
        return proxy.EstimatedBytes();
    if (budget != 0 && records >= budget) {
        proxy.RecountSize();
        return proxy.EstimatedBytes();
    }
    return proxy.EstimatedBytes() + records * bytesPerRecord;
}

}  // namespace ZEL
