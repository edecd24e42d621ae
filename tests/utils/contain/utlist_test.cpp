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

TEST(List, keeps_both_chains_through_every_change) {
    ItemList list, other;
    EXPECT_EQ("|", Names(list));
    EXPECT_EQ(nullptr, list.get_last());
    Item a('a'), b('b'), c('c');
    auto d = std::make_unique<Item>('d');
    list.insert(&b);
    list.append(d.get());
    list.insert_before(&a, &b);
    list.insert_after(&c, &b);
    EXPECT_EQ("abcd|dcba", Names(list));
    EXPECT_EQ(&a, list.get_first());
    EXPECT_EQ(d.get(), list.get_last());
    EXPECT_EQ(nullptr, list.next(d.get()));
    // An element that is inserted again moves; one that is deleted leaves.
    list.insert(&c);
    list.insert_after(&a, &a);
    other.append(&a);
    d.reset();
    EXPECT_EQ("cb|bc", Names(list));
    EXPECT_EQ("a|a", Names(other));
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
