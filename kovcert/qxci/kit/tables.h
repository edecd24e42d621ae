#ifndef QUOREL_KOVCERT_QXCI_KIT_TABLES_H
#define QUOREL_KOVCERT_QXCI_KIT_TABLES_H

/// Handles, and the entries of tables. A class that handles point at names their type as
/// `a_handle`.

#include <type_traits>

#include "kovcert/qxci/qxci.h"

namespace qxci {

/// The object behind a handle.
template <class Object>
Object& object_of(typename Object::a_handle handle) {
    return *reinterpret_cast<Object*>(handle);
}

/// A handle may be read as one of the class's base, which has to lie at the same address.
template <class Object>
typename Object::a_handle handle_of(Object& object) {
    static_assert(!std::is_polymorphic_v<Object>, "a base would lie behind the virtual table");
    return reinterpret_cast<typename Object::a_handle>(&object);
}

template <auto Method>
struct a_method;

template <class Object, class Result, class... Args, bool Throws_not,
          Result (Object::*Method)(Args...) noexcept(Throws_not)>
struct a_method<Method> {
    static Result call(typename Object::a_handle handle, Args... args) {
        Object& object = object_of<Object>(handle);
        object.begin_operation();
        return (object.*Method)(args...);
    }
};

template <class Object, class Result, class... Args, bool Throws_not,
          Result (Object::*Method)(Args...) const noexcept(Throws_not)>
struct a_method<Method> {
    static Result call(typename Object::a_handle handle, Args... args) {
        return (object_of<Object>(handle).*Method)(args...);
    }
};

/// The entry for a method of an object, which takes the entry's arguments but for the handle. One
/// that is not const is an operation: the error of the operation before is forgotten first.
template <auto Method>
inline constexpr auto entry = a_method<Method>::call;

/// Entry get_last_error_func.
template <class Object>
const a_qxci_error* last_error(typename Object::a_handle handle) {
    return object_of<Object>(handle).last_error();
}

/// A getter: fills the owner's table.
template <class Table>
a_qxci_result fill_table(Table* table, const Table& entries) {
    if (table == nullptr) return QXCI_ERROR;
    *table = entries;
    return QXCI_OK;
}

}  // namespace qxci

#endif
