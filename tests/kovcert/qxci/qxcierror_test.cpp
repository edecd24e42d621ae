#include "kovcert/qxci/qxcierror.h"

#include <cstring>

#include <gmock/gmock.h>

#include "tests/kovcert/qxci/trial.h"
#include "utils/lang/utlangstring.h"

namespace {

using testing::HasSubstr;

TEST(QXCIError, clones_are_independent_and_a_missing_original_is_unknown) {
    char first[] = "one";
    char second[] = "two";
    char* list[] = {first, second, nullptr};
    const a_qxci_error record = {QxciErrBadCertFile, 13, list};
    DBQXCIError error;
    error.AddParm("old");
    error.AddParm(nullptr);
    error.CloneFrom(&record);
    first[0] = 'X';
    DBQXCIError copy;
    copy.CloneFrom(&error);
    error.CloneFrom(&error);
    copy.AddParm("three");
    EXPECT_EQ("3 13 one two", describe(error));
    EXPECT_EQ("3 13 one two three", describe(copy));
    EXPECT_EQ(nullptr, copy.GetParm(-1));
    error.CloneFrom(static_cast<const a_qxci_error*>(nullptr));
    copy.CloneFrom(static_cast<const DBQXCIError*>(nullptr));
    EXPECT_EQ("37 37", describe(error) + " " + describe(copy));
}

/// What has happened to mutexes: "C", "D", "<" and ">" for create, destroy, get and give, each with
/// the mutex's number.
std::string mutex_log;
void note(char sign, void* mutex) {
    mutex_log += sign + std::to_string(reinterpret_cast<uintptr_t>(mutex));
}

/// Creates two mutexes; the context counts them.
a_qxci_callbacks noting_callbacks() {
    a_qxci_callbacks table = {};
    table.mutex_create_cb = [](void* context) -> void* {
        uintptr_t& made = *static_cast<uintptr_t*>(context);
        if (made == 2) return nullptr;
        note('C', reinterpret_cast<void*>(++made));
        return reinterpret_cast<void*>(made);
    };
    table.mutex_destroy_cb = [](void*, void* mutex) { note('D', mutex); };
    table.mutex_get_cb = [](void*, void* mutex) { note('<', mutex); };
    table.mutex_give_cb = [](void*, void* mutex) { note('>', mutex); };
    return table;
}

TEST(QXCIError, every_operation_holds_the_records_mutex_once) {
    const a_qxci_callbacks callbacks = noting_callbacks();
    uintptr_t made = 0;
    DBQXCIEnvironment env(&callbacks, &made);
    const UTLocale locale(ls_english(), ls_find_charset("UTF-8"));
    UTLangStringBase texts(locale);
    const auto locks_of = [](auto operation) {
        operation();
        return std::exchange(mutex_log, "");
    };
    {
        DBQXCIError error;
        DBQXCIError other;
        char text[8];
        EXPECT_EQ("C1", locks_of([&] { error.createMutex(&env); }));
        EXPECT_EQ("C2", locks_of([&] { other.createMutex(&env); }));
        EXPECT_EQ("<1>1", locks_of([&] { error.AddParm("a"); }));
        EXPECT_EQ("<1>1", locks_of([&] { error.GetParm(0); }));
        EXPECT_EQ("<1<2>2>1", locks_of([&] { error.CloneFrom(&other); }));
        EXPECT_EQ("<1>1", locks_of([&] { error.GetString(&texts, text, sizeof text, nullptr); }));
        EXPECT_EQ("", locks_of([&] { error._CloneFrom(nullptr, false); }));
        EXPECT_EQ("<1>1", locks_of([&] { error._CloneFrom(nullptr, true); }));
        EXPECT_EQ("<1>1", locks_of([&] { error.Clear(); }));
        EXPECT_EQ("D1", locks_of([&] { error.createMutex(&env); })) << "there is none left";
        EXPECT_EQ("", locks_of([&] { error.AddParm("unlocked"); }));
    }
    EXPECT_EQ("D2", std::exchange(mutex_log, ""));
}

TEST(QXCIError, every_code_has_its_text) {
    const UTLocale locale(ls_english(), ls_find_charset("UTF-8"));
    UTLangString texts(locale, RES_FOLDER);
    ASSERT_EQ(LS_INIT_OKAY, texts.Init("en", ls_find_charset("UTF-8"), false));
    char own[] = "<own>";
    char* list[] = {own, nullptr};
    char text[256];
    std::string ids;  // P: the text takes the parameter; S: the system code
    for (uint32_t code = 0; code <= 38; ++code) {
        SCOPED_TRACE(code);
        const a_qxci_error record = {code, 4000000000U, list};
        DBQXCIError error;
        error.CloneFrom(&record);
        bool parm = false;
        bool system_code = false;
        ids += std::to_string(error._getTlsErrorId(&parm, &system_code));
        ids += parm ? "P " : system_code ? "S " : " ";
        std::strcpy(text, "left over");
        error.GetString(&texts, text, sizeof text, nullptr);
        EXPECT_EQ(code == 0, *text == '\0');
        EXPECT_EQ(parm, std::strstr(text, "<own>") != nullptr);
        EXPECT_EQ(system_code, std::strstr(text, "4000000000") != nullptr);
    }
    EXPECT_EQ("0 17590 9845P 13974S 13975 9118P 14824P 11242S 11237S 13976S 11237S 17587S 13977 "
              "13345P 13346P 13347P 17587S 14003 14215 14216 9123 17440 17441 17446P 17591S 14554P "
              "13972P 17589 17921P 17932 17993 18541 14909 14530 25988 26617 26618 17587S 17587S ",
              ids);
    DBQXCIError missing;
    missing.Set(QxciErrMissingDll, "libx.so", "libx.so");
    missing.GetString(&texts, text, sizeof text, "<given>");
    EXPECT_THAT(text, HasSubstr("<given>"));
    std::strcpy(text, "12345678");
    missing.GetString(&texts, text, 0, nullptr);
    missing.GetString(nullptr, text, sizeof text, nullptr);
    EXPECT_STREQ("12345678", text);
    missing.GetString(&texts, text, 5, nullptr);
    EXPECT_STREQ("Encr", text);
}

}  // namespace
