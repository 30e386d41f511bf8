#pragma once

#include <atomic>
#include <new>
#include <utility>

#include "common/countedptr.h"
#include "common/itobfactory.h"

namespace vodLib {

class NonCopyable {
protected:
    NonCopyable() = default;
    ~NonCopyable() = default;

public:
    NonCopyable(const NonCopyable&) = delete;
    NonCopyable& operator=(const NonCopyable&) = delete;
};

}  // namespace vodLib

namespace ZEL {

// Per module: how many of its objects live, and the handle that names it to a loader. Each
// loadable component defines both functions once.
std::atomic<std::uint32_t>& LiveObjectCounter() noexcept;
void* ModuleHandle() noexcept;

// Counts from 0 with atomic adds; whoever hands an object out adds the first reference.
class CTobThreadSafeRefCount {
public:
    std::int64_t Increment() noexcept { return count_.fetch_add(1, std::memory_order_relaxed) + 1; }
    std::int64_t Decrement() noexcept { return count_.fetch_sub(1, std::memory_order_acq_rel) - 1; }

private:
    std::atomic<std::int64_t> count_{0};
};

// What every public object shares: its count, and its place in the module's live-object counter.
template <typename RefCount>
class ITobBaseImpl {
public:
    ITobBaseImpl() noexcept { LiveObjectCounter().fetch_add(1, std::memory_order_relaxed); }
    ITobBaseImpl(const ITobBaseImpl&) = delete;
    ITobBaseImpl& operator=(const ITobBaseImpl&) = delete;
    virtual ~ITobBaseImpl() { LiveObjectCounter().fetch_sub(1, std::memory_order_release); }

    // Both stand in the table of virtual operations; nothing in this tree calls them.
    virtual TobResult OnConstructed() { return TOB_OK; }
    virtual void OnDestroying() {}

protected:
    RefCount refCount_;
};

// One row of a class's list of interfaces: the identifier, and the face that answers it.
struct InterfaceRow {
    GUID iid;
    void* face;
};

// `QueryInterface` over a list of rows; the all-zero identifier gives the first row's face.
template <std::size_t n>
TobResult FindInterface(const InterfaceRow (&rows)[n], const GUID& iid, ITobBase* object,
                        void** out) {
    if (out == nullptr)
        return TOBERR_INVALID_ARG;
    *out = nullptr;
    for (const InterfaceRow& row : rows) {
        if (iid == iidTobBase || iid == row.iid) {
            *out = row.face;
            object->AddRef();
            return TOB_OK;
        }
    }
    return TOBERR_NO_INTERFACE;
}

// The owner that every public object may have: the loader that is told when the object goes.
class ObjectOwnership {
public:
    ITobBase* Get() const noexcept { return owner_.Get(); }

    ITobBase* Set(ITobBase* owner) noexcept {
        if (owner != owner_.Get())
            owner_ = CountedPtr<ITobBase>(owner);
        return owner;
    }

    TobResult Attach(ITobBase* owner) {
        if (owner != nullptr) {
            const TobResult result =
                static_cast<IObjectOwner*>(owner)->AddRefModule(ModuleHandle());
            if (Failed(result))
                return result;
        }
        Set(owner);
        return TOB_OK;
    }

    CountedPtr<ITobBase> Share() const noexcept { return owner_; }

private:
    CountedPtr<ITobBase> owner_;
};

// Body of every public object's Release. The owner is taken out first, since it must outlive the
// destructor of the object that may be the last user of the owner's module.
template <typename T>
std::int64_t ReleaseObject(T* object, CTobThreadSafeRefCount& count, const ObjectOwnership& own) {
    const std::int64_t left = count.Decrement();
    if (left != 0)
        return left;
    const CountedPtr<ITobBase> owner = own.Share();
    delete object;
    if (owner)
        IgnoreResult(static_cast<IObjectOwner*>(owner.Get())->ReleaseModule(ModuleHandle()),
                     "the object is gone, nobody is left to be told");
    return 0;
}

// The factory of class T. T offers QueryInterface, SetOwner and a constructor without arguments.
template <typename T>
class CTobFactoryImpl final : public ITobFactory2,
                              public ITobBaseImpl<CTobThreadSafeRefCount>,
                              public vodLib::NonCopyable {
public:
    TobResult QueryInterface(const GUID& iid, void** out) override {
        ITobFactory2* const face = this;
        const InterfaceRow rows[] = {{iidTobFactory, face}, {iidTobFactory2, face}};
        return FindInterface(rows, iid, this, out);
    }
    std::int64_t AddRef() override { return refCount_.Increment(); }
    std::int64_t Release() override { return ReleaseObject(this, refCount_, owner_); }

    TobResult CreateInstance(const GUID& iid, void** out) override {
        return CreateInstance(iid, out, nullptr);
    }

    TobResult CreateInstance(const GUID& iid, void** out, ITobBase* owner) override {
        if (out == nullptr)
            return TOBERR_INVALID_ARG;
        *out = nullptr;
        try {
            T* const object = new (std::nothrow) T();
            if (object == nullptr)
                return TOBERR_OUT_OF_MEMORY;
            const TobResult result = object->QueryInterface(iid, out);
            if (Failed(result)) {
                delete object;
                return result;
            }
            if (owner != nullptr)
                object->SetOwner(owner);
            return TOB_OK;
        } catch (...) {
            return TOBERR_OUT_OF_MEMORY;
        }
    }

    virtual ITobBase* GetOwner() { return owner_.Get(); }
    virtual ITobBase* SetOwner(ITobBase* owner) { return owner_.Set(owner); }
    virtual TobResult AttachOwner(ITobBase* owner) { return owner_.Attach(owner); }

private:
    ObjectOwnership owner_;
};

}  // namespace ZEL
