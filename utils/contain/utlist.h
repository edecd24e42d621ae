#ifndef QUOREL_UTILS_CONTAIN_UTLIST_H
#define QUOREL_UTILS_CONTAIN_UTLIST_H

/// The intrusive doubly linked list of the whole library: an element derives from c_utils_link, so
/// putting it into a list costs no allocation and an element sits in one list at a time.
///
/// A list never owns its elements. Deleting an element takes it out of its list by itself; deleting
/// a list leaves its elements alone. Whoever does own the elements empties the list with
/// delete_all().
///
/// A list is circular through one sentinel link; it is empty when the sentinel points to itself.
///
/// Threads: nothing here locks. A list and all of its elements belong to one thread at a time.

#include <cstddef>
#include <new>

#include "utils/etc/uttypes.h"
#include "utils/utmem/utmem.h"

/// Common root of the library's list classes; it holds nothing. Objects made with new come from the
/// library's allocator: a plain new never fails, for running out of memory ends the process there,
/// and a new with std::nothrow yields null.
class c_utils_base {
  public:
    static void* operator new(size_t size) { return ut_alloc(size); }
    static void* operator new(size_t size, const std::nothrow_t&) noexcept {
        return ut_malloc(size);
    }
    static void operator delete(void* object) { ut_free(object); }
};

/// What makes an object an element. Outside any list both pointers point to the object itself.
class c_utils_link : public c_utils_base {
  public:
    c_utils_link() : next(this), prev(this) {}
    /// Membership is not part of an element's value: a copy starts outside any list ...
    c_utils_link(const c_utils_link&) : c_utils_base(), next(this), prev(this) {}
    /// ... and an assignment leaves the target where it is.
    // NOLINTNEXTLINE(bugprone-unhandled-self-assignment): nothing is assigned
    c_utils_link& operator=(const c_utils_link&) { return *this; }
    /// Takes the object out of the list that holds it.
    virtual ~c_utils_link();

    /// Takes the object out of its list; does nothing when it is in none.
    void unlink();
    a_bool is_linked() const { return next != this; }

    c_utils_link* next;
    c_utils_link* prev;
};

/// The untyped list. Every operation takes constant time except clear().
///
/// A link that is inserted leaves the list it was in first. A position handed to base_insert_after,
/// base_insert_before or base_next must be an element of this list. None of them is null.
class c_utils_list_base {
  public:
    c_utils_list_base() = default;
    c_utils_list_base(const c_utils_list_base&) = delete;
    c_utils_list_base& operator=(const c_utils_list_base&) = delete;
    /// Unlinks the sentinel only: elements still in the list stay linked to each other, and each
    /// may be deleted later.
    virtual ~c_utils_list_base();

    a_bool is_empty() const { return !list.is_linked(); }
    /// Unlinks every element; deletes none.
    void clear();

    void base_insert(c_utils_link* item);  // at the front
    void base_insert_after(c_utils_link* item, c_utils_link* position);
    void base_insert_before(c_utils_link* item, c_utils_link* position);
    void base_append(c_utils_link* item);  // at the back

    /// Null when there is no such element.
    c_utils_link* base_get_first() const { return element(list.next); }
    c_utils_link* base_get_last() const { return element(list.prev); }
    c_utils_link* base_next(const c_utils_link* position) const { return element(position->next); }

  private:
    friend class c_utils_iter_base;
    c_utils_link* element(c_utils_link* link) const { return link == &list ? nullptr : link; }

    c_utils_link list;
};

/// The untyped iterator: `for (iter.first(); !iter.is_past(); iter.next())`. It steps over the
/// sentinel like over an element, so next() past the last one is the first again. An element may be
/// removed under the iterator only after the iterator has moved on.
class c_utils_iter_base {
  public:
    /// Starts at the first element. `over` is not owned and must outlive the iterator.
    explicit c_utils_iter_base(c_utils_list_base& over) : list(&over), curr(over.list.next) {}
    c_utils_iter_base(const c_utils_iter_base&) = default;
    c_utils_iter_base& operator=(const c_utils_iter_base&) = default;
    virtual ~c_utils_iter_base();

    void first() { curr = list->list.next; }
    void last() { curr = list->list.prev; }
    void next() { curr = curr->next; }
    void prev() { curr = curr->prev; }
    a_bool is_past() const { return curr == &list->list; }
    /// Null when is_past().
    c_utils_link* base_get() const { return list->element(curr); }

  private:
    c_utils_list_base* list;
    c_utils_link* curr;
};

/// The list of one element type, which derives from c_utils_link.
template <class T>
class c_utils_list : public c_utils_list_base {
  public:
    void insert(T* item) { base_insert(item); }
    void insert_after(T* item, T* position) { base_insert_after(item, position); }
    void insert_before(T* item, T* position) { base_insert_before(item, position); }
    void append(T* item) { base_append(item); }
    T* get_first() const { return static_cast<T*>(base_get_first()); }
    T* get_last() const { return static_cast<T*>(base_get_last()); }
    T* next(const T* position) const { return static_cast<T*>(base_next(position)); }

    /// For an owner: unlinks and deletes one element after the other until the list is empty.
    void delete_all() {
        while (T* item = get_first()) {
            item->unlink();
            delete item;
        }
    }
};

/// The iterator of one element type.
template <class T>
class c_utils_iter : public c_utils_iter_base {
  public:
    explicit c_utils_iter(c_utils_list<T>& over) : c_utils_iter_base(over) {}
    T* get() const { return static_cast<T*>(base_get()); }
};

#endif
