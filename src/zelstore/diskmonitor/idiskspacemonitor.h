#pragma once

#include "common/itobbase.h"

// The disk space monitor as its host sees it. A host makes a manager, starts the monitor, takes the
// registration and subscribes; it stops the monitor at the end. All operations may be called from
// any thread and throw nothing.
namespace ZEL {

enum class DiskState : std::uint32_t {
    stop = 1,    // free space has fallen below the threshold
    resume = 2,  // there is room, or there is room again by a margin
};

// What subscribers are told. It never changes; who needs it longer than the call adds a reference.
class IMonitorEvent : public ITobBase {
public:
    virtual DiskState GetState() = 0;

protected:
    ~IMonitorEvent() = default;
};

// What a host implements. It answers the all-zero identifier like every object: two pointers mean
// the same subscriber when that answer is the same.
class IMonitorSubscriber : public ITobBase {
public:
    // Called on the monitor's thread, and once on the caller's thread by Subscribe. Every operation
    // of the monitor may be called from here, those that end it included. The result is not looked
    // at.
    virtual HRESULT OnMonitorEvent(IMonitorEvent* event) = 0;

protected:
    ~IMonitorSubscriber() = default;
};

// Subscribers hear of each crossing of a threshold once, in the order in which they subscribed.
//
// While they are called, another thread that subscribes or unsubscribes waits; so nobody is called
// any more when Unsubscribe has returned to another thread than the monitor's.
class IMonitorRegistration : public ITobBase {
public:
    // Adds a reference to the subscriber and tells it the present state at once. 0x80070057 for
    // null; 0x80004005, and no call, for one that is subscribed already.
    virtual HRESULT Subscribe(IMonitorSubscriber* subscriber) = 0;
    // Null removes all. One that is not subscribed is no error.
    virtual HRESULT Unsubscribe(IMonitorSubscriber* subscriber) = 0;

protected:
    ~IMonitorRegistration() = default;
};

// A monitor's thresholds. A new monitor takes those of the settings, else 2500 and 10.
class IMonitorConfiguration : public ITobBase {
public:
    // `stopThreshold` in megabytes of 1,000,000 bytes: below it, subscribers are told to stop.
    // `resumePercentage`: how far above it free space must climb before they are told to resume, in
    // percent of it. Both hold from the next look at the volume on and are written to the settings
    // unless they stand there. A failure to write is reported and returned; the thresholds hold all
    // the same.
    virtual HRESULT SetThresholds(std::uint32_t stopThreshold, std::uint32_t resumePercentage) = 0;

protected:
    ~IMonitorConfiguration() = default;
};

// Start and end of a monitor that a host has made itself; the manager does this for its own.
class IMonitorLifetime : public ITobBase {
public:
    // Begins to watch; the first look comes after one period. hr::ok when it watches already;
    // 0x8007000E or 0x8007009B when it can't.
    virtual HRESULT Start() = 0;
    // Asks the monitor's thread to end and does not wait for it.
    virtual HRESULT Stop() = 0;
    // Returns when no thread of the monitor runs; at once on that thread itself.
    virtual HRESULT Wait() = 0;

protected:
    ~IMonitorLifetime() = default;
};

// Keeps one monitor for the whole process: all managers reach the same one.
class IDiskSpaceMonitorManager : public ITobBase {
public:
    // Makes a monitor and starts it. A failure is reported and returned; an earlier monitor then
    // stays. One that runs already is let go. 0x8007000E or 0x8007009B.
    virtual HRESULT StartMonitor() = 0;
    // Ends the monitor and waits for its thread. Without a monitor nothing is done.
    virtual HRESULT StopMonitor() = 0;
    // Both release what `*out` holds and give the monitor's face with a new reference. Without a
    // monitor they succeed and `*out` stays as it was. 0x80070057 for null.
    virtual HRESULT GetRegistration(IMonitorRegistration** out) = 0;
    virtual HRESULT GetConfiguration(IMonitorConfiguration** out) = 0;

protected:
    ~IDiskSpaceMonitorManager() = default;
};

inline constexpr GUID diskSpaceMonitorManagerObjectId =
    MakeGuid("25C3347B-FE8D-4E64-8367-01A8B81018E6");
inline constexpr GUID diskSpaceMonitorObjectId = MakeGuid("7E307D49-26D4-4B0C-B2F5-6D897426DDCC");
inline constexpr GUID iidDiskSpaceMonitorManager = MakeGuid("34091D1A-7B56-4EFB-837C-0817A34D9376");
inline constexpr GUID iidMonitorRegistration = MakeGuid("DB9AAE49-621D-44CF-91E2-61F948E763FD");
inline constexpr GUID iidMonitorConfiguration = MakeGuid("35C88706-DF31-4E12-B634-32F45A714AC3");
inline constexpr GUID iidMonitorLifetime = MakeGuid("450CBC4D-E375-495D-8183-F4334CDD5F8D");
inline constexpr GUID iidMonitorEvent = MakeGuid("64CA98C4-D09F-4132-AB35-18816949E71E");

}  // namespace ZEL
