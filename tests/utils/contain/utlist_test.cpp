#include "utils/contain/utlist.h"

#include <memory>
#include <string>

#include <gtest/gtest.h>

namespace {

struct Item : c_utils_link {
    explicit Item(char item_name) : name(item_name) {}
    char name;
};
using ItemList = c_utils_list<Item>;

/// Names front to back, a bar, and back to front: both chains must agree.
std::string Names(ItemList& list) {
    std::string forward;
    std::string backward;
    c_utils_iter<Item> iter(list);
    for (; !iter.is_past(); iter.next()) forward += iter.get()->name;
    for (iter.last(); !iter.is_past(); iter.prev()) backward += iter.get()->name;
    return forward + "|" + backward;
}

TEST(List, keeps_both_chains_through_every_change) {
    ItemList list, other;
    EXPECT_EQ("|", Names(list));
    Item a('a'), b('b'), c('c');
    auto d = std::make_unique<Item>('d');
    list.insert(&b);
    list.append(d.get());
    list.insert_before(&a, &b);
    list.insert_after(&c, &b);
    EXPECT_EQ("abcd|dcba", Names(list));
    // An element that is inserted again moves; one that is deleted leaves.
    list.insert(&c);
    list.insert_after(&a, &a);
    other.append(&a);
    d.reset();
    EXPECT_EQ("cb|bc", Names(list));
    EXPECT_EQ("a|a", Names(other));
}

TEST(List, leaves_its_elements_alone_unless_it_is_told_to_delete_them) {
    auto a = std::make_unique<Item>('a'), b = std::make_unique<Item>('b');
    {
        ItemList list;
        list.append(a.get());
        list.append(b.get());
    }
    EXPECT_EQ(b.get(), a->next);
    b.reset();
    EXPECT_FALSE(a->is_linked());

    ItemList list;
    list.append(a.get());
    EXPECT_FALSE(Item(*a).is_linked()) << "a copy is in no list";
    list.clear();
    EXPECT_TRUE(list.is_empty() && !a->is_linked());
    for (char name : {'c', 'd', 'e'}) list.append(new Item(name));
    list.delete_all();
    EXPECT_TRUE(list.is_empty());
}

}  // namespace
