#include "utils/contain/utlist.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

class Item : public c_utils_link {
  public:
    explicit Item(char item_name, int* item_count = nullptr) : name(item_name), count(item_count) {
        if (count != nullptr) ++*count;
    }
    Item(const Item&) = default;
    Item& operator=(const Item&) = default;
    ~Item() override {
        if (count != nullptr) --*count;
    }
    char name;
    int* count;
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

TEST(List, inserts_at_both_ends_and_beside_an_element) {
    ItemList list;
    EXPECT_TRUE(list.is_empty());
    EXPECT_EQ(nullptr, list.get_first());
    EXPECT_EQ(nullptr, list.get_last());
    Item a('a'), b('b'), c('c'), d('d');
    list.insert(&b);
    list.append(&d);
    list.insert_before(&a, &b);
    list.insert_after(&c, &b);
    EXPECT_EQ("abcd|dcba", Names(list));
    EXPECT_EQ(&a, list.get_first());
    EXPECT_EQ(&d, list.get_last());
    EXPECT_EQ(&c, list.next(&b));
    EXPECT_EQ(nullptr, list.next(&d));
}

TEST(List, moves_an_element_that_is_inserted_again) {
    ItemList list, other;
    Item a('a'), b('b'), c('c');
    for (Item* item : {&a, &b, &c}) list.append(item);
    list.insert(&c);
    list.insert_after(&a, &a);
    other.append(&a);
    EXPECT_EQ("cb|bc", Names(list));
    EXPECT_EQ("a|a", Names(other));
}

TEST(List, element_leaves_its_list_when_it_is_deleted) {
    ItemList list;
    auto a = std::make_unique<Item>('a');
    auto b = std::make_unique<Item>('b');
    list.append(a.get());
    list.append(b.get());
    a.reset();
    EXPECT_EQ("b|b", Names(list));
    b.reset();
    EXPECT_TRUE(list.is_empty());
}

TEST(List, leaves_its_elements_alone_when_it_is_deleted) {
    int alive = 0;
    auto a = std::make_unique<Item>('a', &alive);
    auto b = std::make_unique<Item>('b', &alive);
    {
        ItemList list;
        list.append(a.get());
        list.append(b.get());
    }
    EXPECT_EQ(2, alive);
    EXPECT_EQ(b.get(), a->next);
    b.reset();
    EXPECT_FALSE(a->is_linked());
}

TEST(List, clear_unlinks_and_delete_all_deletes) {
    int alive = 0;
    ItemList list;
    Item kept('k', &alive);
    list.append(&kept);
    list.clear();
    EXPECT_TRUE(list.is_empty());
    EXPECT_FALSE(kept.is_linked());
    for (char name : {'a', 'b', 'c'}) list.append(new Item(name, &alive));
    EXPECT_EQ(4, alive);
    list.delete_all();
    EXPECT_EQ(1, alive);
}

TEST(Link, copies_the_value_without_the_membership) {
    ItemList list;
    Item a('a'), b('b');
    list.append(&a);
    list.append(&b);
    const Item copy(a);
    EXPECT_FALSE(copy.is_linked());
    b = copy;
    EXPECT_EQ("aa|aa", Names(list));
}

}  // namespace
