#pragma once

#include <cstdint>

#include "common/countedptr.h"
#include "common/result.h"
#include "common/settings.h"
#include "common/wmapi.h"

// The 32-bit values of the host's settings service, by the path of a key and a value's name.
//
// A service that can't be reached is no reason to stop: the caller goes on with its default, and
// the trace tells why.
namespace wm {

// A key of the settings and the service that it came from. For one thread.
class WMLIB_API OpenSettingsKey {
public:
    // The service's own failure, or that of the key. On failure there is no key, and nothing else
    // may be called. A key that was open is closed first, and what was written through it and not
    // put back is dropped.
    ZEL::TobResult Open(const wchar_t* keyPath) noexcept;
    // Makes what was written through the key last. The key stays open, with what was written.
    ZEL::TobResult PutBack();

    ZEL::ISettingsKey* operator->() const noexcept { return key_.Get(); }
    ZEL::ISettingsKey& operator*() const noexcept { return *key_; }

private:
    ZEL::CountedPtr<ZEL::ISettingsManager> manager_;
    ZEL::CountedPtr<ZEL::ISettingsKey> key_;
};

// Reads one value. On failure `*value` keeps what it had, so that a caller passes its default in.
// Failures are traced.
WMLIB_API ZEL::HRESULT ReadSetting(const wchar_t* keyPath, const wchar_t* name,
                                   std::uint32_t* value);

// Writes one value and makes it last. Failures are traced.
WMLIB_API ZEL::HRESULT WriteSetting(const wchar_t* keyPath, const wchar_t* name,
                                    std::uint32_t value);

}  // namespace wm
