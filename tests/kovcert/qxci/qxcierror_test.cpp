#include "kovcert/qxci/qxcierror.h"

#include <string>

#include <gmock/gmock.h>

#include "kovcert/qxci/dbqxci.h"
#include "utils/lang/utlangstring.h"

namespace {

using testing::HasSubstr;

std::string parms_of(const DBQXCIError& error) {
    std::string parms;
    for (int i = 0; error.GetParm(i) != nullptr; ++i) parms += std::string(error.GetParm(i)) + ";";
    return parms;
}

TEST(QXCIError, keeps_parameters_in_order_until_it_is_cleared) {
    DBQXCIError error;
    EXPECT_EQ(error.GetParm(0), nullptr);
    error.AddParm("a");
    error.AddParm(nullptr);
    error.AddParm("b");
    EXPECT_EQ(parms_of(error), "a;b;");
    EXPECT_EQ(error.GetParm(-1), nullptr);
    EXPECT_EQ(error.setErrorCode(QxciErrBadUnit), QxciErrBadUnit);
    EXPECT_TRUE(error.isError());
    error.Clear();
    EXPECT_FALSE(error.isError());
    EXPECT_EQ(parms_of(error), "");
}

TEST(QXCIError, clones_are_independent_and_a_missing_original_is_unknown) {
    char first[] = "one";
    char second[] = "two";
    char* list[] = {first, second, nullptr};
    const a_qxci_error record = {QxciErrBadCertFile, 13, list};
    DBQXCIError error;
    error.AddParm("old");
    error.CloneFrom(&record);
    first[0] = 'X';
    DBQXCIError copy;
    copy.CloneFrom(&error);
    error.CloneFrom(&error);
    copy.AddParm("three");
    for (const DBQXCIError* each : {&error, &copy}) {
        EXPECT_EQ(each->getErrorCode(), QxciErrBadCertFile);
        EXPECT_EQ(each->getSystemCode(), 13U);
    }
    EXPECT_EQ(parms_of(error), "one;two;");
    EXPECT_EQ(parms_of(copy), "one;two;three;");
    error.CloneFrom(static_cast<const a_qxci_error*>(nullptr));
    copy.CloneFrom(static_cast<const DBQXCIError*>(nullptr));
    for (const DBQXCIError* each : {&error, &copy}) {
        EXPECT_EQ(each->getErrorCode(), QxciErrUnknown);
        EXPECT_EQ(each->getSystemCode(), 0U);
        EXPECT_EQ(parms_of(*each), "");
    }
}

/// What an owner's mutexes did: "C", "D", "<" and ">" for create, destroy, get and give, each with
/// the mutex's number.
struct MutexLog {
    std::string log;
    int made = 0;
    bool exhausted = false;

    static a_qxci_callbacks callbacks() {
        a_qxci_callbacks table = {};
        table.mutex_create_cb = [](void* context) -> void* {
            MutexLog& self = *static_cast<MutexLog*>(context);
            if (self.exhausted) return nullptr;
            self.log += "C" + std::to_string(++self.made);
            return new int(self.made);
        };
        table.mutex_get_cb = [](void* context, void* mutex) { note<'<'>(context, mutex); };
        table.mutex_give_cb = [](void* context, void* mutex) { note<'>'>(context, mutex); };
        table.mutex_destroy_cb = [](void* context, void* mutex) {
            note<'D'>(context, mutex);
            delete static_cast<int*>(mutex);
        };
        return table;
    }

    template <char Sign>
    static void note(void* context, void* mutex) {
        static_cast<MutexLog*>(context)->log += Sign + std::to_string(*static_cast<int*>(mutex));
    }

    std::string taken() { return std::exchange(log, ""); }
};

TEST(QXCIError, every_operation_holds_the_records_mutex_once) {
    MutexLog mutexes;
    const a_qxci_callbacks callbacks = MutexLog::callbacks();
    DBQXCIEnvironment env(&callbacks, &mutexes);
    const UTLocale locale(ls_english(), ls_find_charset("UTF-8"));
    UTLangStringBase texts(locale);
    {
        DBQXCIError error;
        DBQXCIError other;
        error.createMutex(&env);
        other.createMutex(&env);
        EXPECT_EQ(mutexes.taken(), "C1C2");
        error.AddParm("a");
        EXPECT_EQ(mutexes.taken(), "<1>1");
        error.GetParm(0);
        EXPECT_EQ(mutexes.taken(), "<1>1");
        error.CloneFrom(&other);
        EXPECT_EQ(mutexes.taken(), "<1<2>2>1");
        char text[8];
        error.GetString(&texts, text, sizeof text, nullptr);
        EXPECT_EQ(mutexes.taken(), "<1>1");
        error._CloneFrom(nullptr, false);
        EXPECT_EQ(mutexes.taken(), "");
        error.Clear();
        EXPECT_EQ(mutexes.taken(), "<1>1");
        error.createMutex(&env);
        EXPECT_EQ(mutexes.taken(), "C3D1");
        mutexes.exhausted = true;
        error.createMutex(&env);
        error.AddParm("unlocked");
        EXPECT_EQ(parms_of(error), "unlocked;");
        EXPECT_EQ(mutexes.taken(), "D3");
    }
    EXPECT_EQ(mutexes.taken(), "D2");
}

TEST(QXCIError, every_code_has_its_text) {
    // P: the text takes the parameter; S: the system code.
    const struct {
        int id;
        char takes;
    } table[] = {
        {0, '-'},     {17590, '-'}, {9845, 'P'},  {13974, 'S'}, {13975, '-'}, {9118, 'P'},
        {14824, 'P'}, {11242, 'S'}, {11237, 'S'}, {13976, 'S'}, {11237, 'S'}, {17587, 'S'},
        {13977, '-'}, {13345, 'P'}, {13346, 'P'}, {13347, 'P'}, {17587, 'S'}, {14003, '-'},
        {14215, '-'}, {14216, '-'}, {9123, '-'},  {17440, '-'}, {17441, '-'}, {17446, 'P'},
        {17591, 'S'}, {14554, 'P'}, {13972, 'P'}, {17589, '-'}, {17921, 'P'}, {17932, '-'},
        {17993, '-'}, {18541, '-'}, {14909, '-'}, {14530, '-'}, {25988, '-'}, {26617, '-'},
        {26618, '-'}, {17587, 'S'}, {17587, 'S'},
    };
    const UTLocale locale(ls_english(), ls_find_charset("UTF-8"));
    UTLangString texts(locale, RES_FOLDER);
    ASSERT_EQ(texts.Init("en", ls_find_charset("UTF-8"), false), LS_INIT_OKAY);
    char own[] = "<own>";
    char* list[] = {own, nullptr};
    uint32_t code = 0;
    for (const auto& row : table) {
        SCOPED_TRACE(code);
        const a_qxci_error record = {code, 4000000000U, list};
        DBQXCIError error;
        error.CloneFrom(&record);
        bool parm = false;
        bool system_code = false;
        EXPECT_EQ(error._getTlsErrorId(&parm, &system_code), row.id);
        char text[256] = "left over";
        error.GetString(&texts, text, sizeof text, nullptr);
        const std::string shown = text;
        EXPECT_EQ(shown.find("<own>") != std::string::npos, row.takes == 'P');
        EXPECT_EQ(shown.find("4000000000") != std::string::npos, row.takes == 'S');
        EXPECT_EQ(parm, row.takes == 'P');
        EXPECT_EQ(system_code, row.takes == 'S');
        EXPECT_EQ(shown.empty(), code == 0);
        error.GetString(&texts, text, sizeof text, "<given>");
        EXPECT_EQ(std::string(text).find("<given>") != std::string::npos, row.takes == 'P');
        ++code;
    }
    DBQXCIError missing;
    missing.Set(QxciErrMissingDll, "libx.so", "libx.so");
    char text[] = "12345678";
    missing.GetString(&texts, text, 0, nullptr);
    missing.GetString(nullptr, text, sizeof text, nullptr);
    EXPECT_STREQ(text, "12345678");
    missing.GetString(&texts, text, 5, nullptr);
    EXPECT_STREQ(text, "Encr");
}

}  // namespace
