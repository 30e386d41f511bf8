#include "zelstore/schema/objectfactory.h"

#include <typeinfo>

#include "zelstore/schema/objectclasses.h"

// One table ties the number of an object type to its class, for making, for recognising and for
// copying. An object's number can differ from its class only by a caller's doing: making goes by
// the name in the JSON, copying by the number, and a mismatch copies to nothing.

namespace ZEL::Schema {

namespace {

using ObjectPtr = std::unique_ptr<ZelSchemaParser>;

template <typename T>
ObjectPtr Make() {
    return std::make_unique<T>();
}

// Null when the object is of another class than its number says, which only code can bring about.
template <typename T>
ObjectPtr Copy(const ZelSchemaParser& object) {
    const T* const typed = dynamic_cast<const T*>(&object);
    return typed != nullptr ? std::make_unique<T>(*typed) : nullptr;
}

template <typename T>
bool Is(const ZelSchemaParser& object) {
    return typeid(object) == typeid(T);
}

struct ClassRow {
    std::int32_t number;
    ObjectPtr (*make)();
    bool (*is)(const ZelSchemaParser&);
    ObjectPtr (*copy)(const ZelSchemaParser&);
};

template <typename T>
constexpr ClassRow Row(std::int32_t number) {
    return {number, &Make<T>, &Is<T>, &Copy<T>};
}

constexpr ClassRow classes[] = {
    Row<RegKey>(objectType::regKey),
    Row<RegValue>(objectType::regValue),
    Row<File>(objectType::file),
    Row<Directory>(objectType::directory),
    Row<Process>(objectType::process),
    Row<Service>(objectType::service),
    Row<Module>(objectType::module),
    Row<Session>(objectType::session),
    Row<KernelObject>(objectType::kernelObject),
    Row<Network>(objectType::network),
    Row<Amsi>(objectType::amsi),
    Row<Etw>(objectType::etw),
    Row<Url>(objectType::url),
    Row<Unknown>(objectType::unknown),
};

const ClassRow* FindClass(std::int32_t number) {
    for (const ClassRow& row : classes)
        if (row.number == number)
            return &row;
    return nullptr;
}

}  // namespace

ObjectPtr ObjectOfType(std::int32_t number, ObjectPtr former) {
    const ClassRow* const row = FindClass(number);
    if (row == nullptr)
        return Make<Unknown>();
    if (former == nullptr || !row->is(*former))
        return row->make();
    former->SetObjectTypeId(number);
    return former;
}

ObjectPtr CreateObjectFromJson(const web::json::value& in, ObjectPtr former) {
    std::int32_t number = objectType::unknown;
    if (const web::json::value* const name = Members(in).Find(names::object_type))
        number = ObjectTypes().Number(name->as_string());
    former = ObjectOfType(number, std::move(former));
    former->FromJson(in);
    return former;
}

ObjectPtr ReadObject(const Members& in, TextView key, ObjectPtr former) {
    const web::json::value* const found = in.Find(key);
    return found != nullptr ? CreateObjectFromJson(*found, std::move(former)) : nullptr;
}

ObjectPtr CloneObject(const ZelSchemaParser* object) {
    if (object == nullptr)
        return nullptr;
    const ClassRow* const row = FindClass(object->GetObjectTypeId());
    return row != nullptr ? row->copy(*object) : nullptr;
}

}  // namespace ZEL::Schema
