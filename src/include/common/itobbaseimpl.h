#pragma once

#include <atomic>
#include <new>
#include <utility>

#include "common/countedptr.h"
#include "common/itobfactory.h"

namespace vodLib {

// Public objects have an identity, their address and their count, which a copy could not share.
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
//
// The counter is what the export GetObjectCount tells: a loader may unload a module only when it is
// 0. It counts factories, too.
std::atomic<std::uint32_t>& LiveObjectCounter() noexcept;
// The handle is an address within the module, by which a loader finds the module.
void* ModuleHandle() noexcept;

// Counts from 0 with atomic adds; whoever hands an object out adds the first reference.
//
// Adding a reference orders nothing, since who adds one has one already. Dropping one releases what
// this thread did to the object and acquires what the others did, so that the thread that drops the
// last one destroys what all of them have written.
class CTobThreadSafeRefCount {
public:
    // The new count. By the time the caller looks at it another thread may have changed it; only 0
    // from Decrement is final.
    std::int64_t Increment() noexcept { return count_.fetch_add(1, std::memory_order_relaxed) + 1; }
    std::int64_t Decrement() noexcept { return count_.fetch_sub(1, std::memory_order_acq_rel) - 1; }

private:
    // 64 bits can't wrap, so no check is made for too many references.
    std::atomic<std::int64_t> count_{0};
};

// What every public object shares: its count, and its place in the module's live-object counter. A
// new object's count is 0: it is of nobody until somebody adds a reference, and can be deleted
// without one, as a factory does when the object lacks the interface that was asked for.
template <typename RefCount>
class ITobBaseImpl {
public:
    ITobBaseImpl() noexcept { LiveObjectCounter().fetch_add(1, std::memory_order_relaxed); }
    ITobBaseImpl(const ITobBaseImpl&) = delete;
    ITobBaseImpl& operator=(const ITobBaseImpl&) = delete;
    virtual ~ITobBaseImpl() { LiveObjectCounter().fetch_sub(1, std::memory_order_release); }

    // Both stand in the table of virtual operations; nothing in this tree calls them. They keep
    // their places for callers in other modules.
    virtual TobResult OnConstructed() { return TOB_OK; }
    virtual void OnDestroying() {}

protected:
    RefCount refCount_;
};

// The base of every public object: the faces of its interfaces, its count and its owner. A class
// adds its interfaces' own operations and `QueryInterface`, which is `Answer` with the list of what
// it answers.
//
// Callers in other modules go by the place of an operation in a face's table, so the order of bases
// and of operations is a contract: first the interfaces, and behind the first one's operations
// those on the owner.
//
// An owner is set before the object is handed to several threads: SetOwner and GetOwner are not
// guarded against each other.
template <typename... Interfaces>
class TobObject : public Interfaces...,
                  public ITobBaseImpl<CTobThreadSafeRefCount>,
                  public vodLib::NonCopyable {
public:
    std::int64_t AddRef() final { return refCount_.Increment(); }

    // The owner is taken out first: its module holds the code of the destructor that is about to
    // run.
    std::int64_t Release() final {
        const std::int64_t left = refCount_.Decrement();
        if (left != 0)
            return left;
        const CountedPtr<ITobBase> owner = owner_;
        delete this;
        if (owner)
            IgnoreResult(static_cast<IObjectOwner*>(owner.Get())->ReleaseModule(ModuleHandle()),
                         "the object is gone, nobody is left to be told");
        return 0;
    }

    // Without a new reference; null when there is none.
    virtual ITobBase* GetOwner() { return owner_.Get(); }

    // Gives `owner` back. The former one is released; null leaves the object without one.
    virtual ITobBase* SetOwner(ITobBase* owner) {
        if (owner != owner_.Get())
            owner_ = CountedPtr<ITobBase>(owner);
        return owner;
    }

    // As SetOwner, after the owner was told; when it refuses, the former one stays. Use this one
    // for an owner that counts modules, as the last Release tells it of the module in any case.
    virtual TobResult AttachOwner(ITobBase* owner) {
        if (owner != nullptr) {
            const TobResult told = static_cast<IObjectOwner*>(owner)->AddRefModule(ModuleHandle());
            if (Failed(told))
                return told;
        }
        SetOwner(owner);
        return TOB_OK;
    }

protected:
    // The identifier of an interface, and the face that answers it. A face is the object as one of
    // its interfaces: with several bases each has an address of its own, so the cast is made where
    // the class is known.
    struct Face {
        GUID iid;
        void* face;
    };

    // Body of QueryInterface; the all-zero identifier gives the first face. A class lists its first
    // interface first. The reference is added through the object, so all faces share one count.
    template <std::size_t n>
    TobResult Answer(const GUID& iid, void** out, const Face (&faces)[n]) {
        if (out == nullptr)
            return TOBERR_INVALID_ARG;
        *out = nullptr;
        for (const Face& row : faces) {
            if (iid == iidTobBase || iid == row.iid) {
                *out = row.face;
                AddRef();
                return TOB_OK;
            }
        }
        return TOBERR_NO_INTERFACE;
    }

private:
    // The object keeps its owner alive, and with it the loader that has to unload the module after
    // it.
    CountedPtr<ITobBase> owner_;
};

// A public object with one interface. Most objects of the store and its services are of this kind.
// `interfaceId` has to be the constant of `Interface`; nothing checks it.
template <typename Interface, const GUID& interfaceId>
class TobObjectOf : public TobObject<Interface> {
public:
    TobResult QueryInterface(const GUID& iid, void** out) final {
        return this->Answer(iid, out, {{interfaceId, static_cast<Interface*>(this)}});
    }
};

// The factory of class T. T offers QueryInterface, SetOwner and a constructor without arguments.
//
// An object that comes without the asked interface is deleted without having had a reference, and a
// constructor that throws leaves nothing; both count as failures of this call alone, and the
// factory stays good. May be used by several threads at once.
template <typename T>
class CTobFactoryImpl final : public TobObject<ITobFactory2> {
public:
    TobResult QueryInterface(const GUID& iid, void** out) override {
        ITobFactory2* const face = this;
        return this->Answer(iid, out, {{iidTobFactory, face}, {iidTobFactory2, face}});
    }

    // An object without an owner tells nobody of its end.
    TobResult CreateInstance(const GUID& iid, void** out) override {
        return CreateInstance(iid, out, nullptr);
    }

    // Whatever a constructor throws is told as want of memory: constructors here do nothing that
    // can fail otherwise.
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
};

// Body of a component's GetFactory, for the class that was asked for: a new factory with one
// reference. On failure `*factory` stays as it was.
template <typename T>
TobResult GiveFactory(ITobFactory** factory) noexcept {
    auto* const made = new (std::nothrow) CTobFactoryImpl<T>();
    if (made == nullptr)
        return TOBERR_OUT_OF_MEMORY;
    made->AddRef();
    *factory = made;
    return TOB_OK;
}

}  // namespace ZEL
