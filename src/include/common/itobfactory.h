#pragma once

#include "common/itobbase.h"

namespace ZEL {

// Makes objects of one class. A factory keeps nothing of the objects that it made, and they need it
// no longer. May be used by several threads at once.
class ITobFactory : public ITobBase {
public:
    // Makes an object and gives its face for `iid` with one reference. On failure `*out` is null
    // and no object is left.
    virtual TobResult CreateInstance(const GUID& iid, void** out) = 0;

protected:
    ~ITobFactory() = default;
};

// Found by asking a factory for its identifier; only a loader that is an owner needs it.
class ITobFactory2 : public ITobFactory {
public:
    using ITobFactory::CreateInstance;

    // The same; then `owner`, when not null, becomes the object's owner. The owner is counted, but
    // its AddRefModule is not called: balancing the ReleaseModule of the object's last Release is
    // the concern of the loader that passes itself as owner.
    virtual TobResult CreateInstance(const GUID& iid, void** out, ITobBase* owner) = 0;

protected:
    ~ITobFactory2() = default;
};

// The loader that brought this component in. An object that has an owner tells it when it goes, so
// that the loader knows when the module may be unloaded.
class IObjectOwner : public ITobBase {
public:
    // Both get the handle of the library that holds the object's code. ReleaseModule comes after
    // the object's destructor has run, from the thread that released it, and has to leave the
    // library loaded until that thread is out of its code.
    virtual TobResult ReleaseModule(void* moduleHandle) = 0;
    virtual TobResult AddRefModule(void* moduleHandle) = 0;

protected:
    ~IObjectOwner() = default;
};

inline constexpr GUID iidTobFactory = MakeGuid("00000001-0000-0000-0000-000000000000");
inline constexpr GUID iidTobFactory2 = MakeGuid("AE9A53F3-AF14-4C9D-A26E-77B5D287A9CF");

// The exports of a loadable component, for those who look them up by name. `*factory` gets one
// reference. An identifier that the component does not know is a failure.
using GetFactoryFunction = TobResult (*)(const GUID& objectId, ITobFactory** factory);
// How many objects of the component live; 0 says that it may be unloaded.
using GetObjectCountFunction = std::uint32_t (*)();

}  // namespace ZEL
