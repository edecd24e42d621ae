#include "utils/contain/utlist.h"

namespace {

void link_between(c_utils_link* item, c_utils_link* before, c_utils_link* after) {
    item->prev = before;
    item->next = after;
    before->next = item;
    after->prev = item;
}

}  // namespace

c_utils_link::~c_utils_link() {
    unlink();
}

void c_utils_link::unlink() {
    prev->next = next;
    next->prev = prev;
    next = this;
    prev = this;
}

c_utils_list_base::~c_utils_list_base() = default;

void c_utils_list_base::clear() {
    while (!is_empty()) list.next->unlink();
}

void c_utils_list_base::base_insert(c_utils_link* item) {
    base_insert_after(item, &list);
}

void c_utils_list_base::base_append(c_utils_link* item) {
    base_insert_before(item, &list);
}

void c_utils_list_base::base_insert_after(c_utils_link* item, c_utils_link* position) {
    if (item == position) return;
    // First, since the element may be in this list, even beside `position`.
    item->unlink();
    link_between(item, position, position->next);
}

void c_utils_list_base::base_insert_before(c_utils_link* item, c_utils_link* position) {
    if (item == position) return;
    item->unlink();
    link_between(item, position->prev, position);
}

c_utils_iter_base::~c_utils_iter_base() = default;
