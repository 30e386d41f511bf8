#pragma once

#include "common/istringvalue.h"

namespace ZEL {

// One row of several values: a text, or 32-bit numbers beside it. Not for use by several threads at
// once.
class IValueRecord : public ITobBase {
public:
    virtual std::size_t Count() = 0;
    // Text at `index` without a new reference; null when there is none or it is a number. It lives
    // as long as the record holds it: add a reference to keep it for longer.
    virtual IStringValue* GetText(std::size_t index) = 0;
    // Number at `index`; false when there is none or it is a text. `*number` stays as it was on
    // failure.
    virtual bool GetNumber(std::size_t index, std::uint32_t* number) = 0;
    // Both append one value; false when memory runs out or `text` is null. The record adds a
    // reference to a text. On failure it is as it was.
    virtual bool AddText(IStringValue* text) = 0;
    virtual bool AddNumber(std::uint32_t number) = 0;

protected:
    ~IValueRecord() = default;
};

// An ordered list of string values (a batch of query results) or of records (database errors). Not
// for use by several threads at once.
//
// Not every list is of one kind: an index counts both. Whoever is handed a collection may keep it,
// with a reference of its own, until he has read it.
class IValueCollection : public ITobBase {
public:
    // Appends with a reference of its own; false when memory runs out or the argument is null. The
    // list is as it was on failure.
    virtual bool Add(IStringValue* value) = 0;
    virtual bool AddRecord(IValueRecord* record) = 0;
    virtual std::size_t Count() = 0;
    // Drops the list's references; texts that others hold stay alive.
    virtual void Clear() = 0;
    // The item at `index` without a new reference; null when it is of the other kind or there is
    // none.
    virtual IStringValue* GetValue(std::size_t index) = 0;
    virtual IValueRecord* GetRecord(std::size_t index) = 0;

protected:
    ~IValueCollection() = default;
};

inline constexpr GUID iidValueRecord = MakeGuid("5D0B7C52-31B4-4F0A-9C7D-6A0C8E4F2B12");
inline constexpr GUID iidValueCollection = MakeGuid("5D0B7C52-31B4-4F0A-9C7D-6A0C8E4F2B13");

}  // namespace ZEL

namespace wm {

// New objects with one reference each, or null when memory runs out.
WMLIB_API ZEL::IValueCollection* CreateValueCollection() noexcept;
WMLIB_API ZEL::IValueRecord* CreateValueRecord() noexcept;

}  // namespace wm
