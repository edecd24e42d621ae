#include "utils/unix/utlasting.h"

#include <string>

#include <gtest/gtest.h>

namespace {

std::string destroyed;

struct Named {
    explicit Named(char n) : name(n) {}
    ~Named() { destroyed += name; }
    char name;
};
UTLasting<Named> first('1');
UTLasting<Named> second('2');

TEST(Lasting, objects_go_once_in_reverse_order_when_nobody_uses_them) {
    {
        const UTLastingUse outer;
        { const UTLastingUse inner; }
        ut_end_lasting();
        EXPECT_TRUE(outer.is_granted());
        EXPECT_EQ('1', first->name);
        EXPECT_EQ("", destroyed);
    }
    for (int i = 0; i < 2; ++i) {
        ut_end_lasting();
        EXPECT_EQ("21", destroyed);
        EXPECT_FALSE(UTLastingUse().is_granted());
    }
}

}  // namespace
