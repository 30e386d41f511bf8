#pragma once

#include "common/itobbase.h"

namespace ZEL {

// One key of the settings, open: 32-bit values by name, as they stood when it was opened, and what
// was written through it since. For one thread at a time.
//
// It is a copy: reading asks no file, and what others write is seen by the next opening alone.
// Nothing is stored before PutBack, and a key that is released without it drops what was written.
// wmSet compares names with case.
class ISettingsKey : public ITobBase {
public:
    // TOBERR_NOT_FOUND when the key has no such value; `*value` then stays as it was.
    virtual TobResult ReadNumber(const wchar_t* name, std::uint32_t* value) = 0;
    // Lasts with PutBack. TOBERR_INVALID_ARG for a name that the settings can't hold.
    virtual TobResult WriteNumber(const wchar_t* name, std::uint32_t value) = 0;

protected:
    ~ISettingsKey() = default;
};

// The same; values can be taken out as well. Asked of a key by its identifier: a host's own
// settings need not offer it. Taking a value out is not writing 0: its reader then goes back to his
// default.
class ISettingsKey2 : public ISettingsKey {
public:
    // Lasts with PutBack. TOBERR_NOT_FOUND when the key has no such value.
    virtual TobResult RemoveNumber(const wchar_t* name) = 0;

protected:
    ~ISettingsKey2() = default;
};

// Settings and operational state of the agent. May be used by any thread.
//
// A setting is found by a path, which names a group, and a name within it. There are no types but
// numbers: times, sizes and switches are numbers whose units their readers know.
class ISettingsManager : public ITobBase {
public:
    // Opens a key by its path, such as L"ZEL\\Settings\\FDR", with a new reference. A key that
    // holds nothing yet opens as well. TOBERR_FAIL, and a report, when the settings can't be read.
    virtual TobResult OpenKey(const wchar_t* path, ISettingsKey** key) = 0;
    // Makes what was written through `key` last; values that others wrote meanwhile stay, unless
    // both wrote the same one. TOBERR_FAIL, and a report, when it can't be kept. The key is still
    // to be released.
    virtual TobResult PutBack(ISettingsKey* key) = 0;

protected:
    ~ISettingsManager() = default;
};

// What a component's GetFactory is asked for; the interfaces are asked for by the ones below it.
inline constexpr GUID settingsManagerObjectId = MakeGuid("4F3E0BE1-5FE1-4C22-859B-A6FB7586B828");
inline constexpr GUID iidSettingsManager = MakeGuid("242C63F0-9C10-4E35-9D58-16862C07E168");
inline constexpr GUID iidSettingsKey = MakeGuid("5D0B7C52-31B4-4F0A-9C7D-6A0C8E4F2B14");
inline constexpr GUID iidSettingsKey2 = MakeGuid("4D85DC20-3F0C-4BD0-AD94-A2D70CA4676C");

}  // namespace ZEL
