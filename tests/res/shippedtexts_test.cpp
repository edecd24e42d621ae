// The resource files that the build makes, read with the library's own reader.

#include <string>

#include <gmock/gmock.h>

#include "utils/lang/utlangstring.h"

namespace {

const UTLocale locale(ls_english(), ls_find_charset("UTF-8"));

template <class... Args>
std::string text(UTLangStringBase& strings, uint32 id, Args... args) {
    char buffer[256];
    strings.FormatMiscLangStr(id, buffer, sizeof buffer, args...);
    return buffer;
}

}  // namespace

TEST(ShippedTexts, can_be_read_in_every_language) {
    using testing::HasSubstr;
    for (const char* language :
         {"en12", "de12", "fr12", "es12", "zh12", "ja12_utf8", "ja12_sjis", "ja12_eucjp"}) {
        UTQXResFile file;
        const std::string path = std::string(RES_FOLDER "/nxlg") + language + ".res";
        ASSERT_TRUE(file.Open(path.c_str()));
        UTLangStringBase strings(locale);
        strings.AddFile(&file);
        strings.SetCharset(locale.GetOSCharset());
        const std::string label = std::string(language).substr(0, 2);
        EXPECT_THAT(text(strings, RES_DESCRIPTION_STRING), HasSubstr(";language=" + label));
        EXPECT_THAT(text(strings, 9845, "<parameter>"), HasSubstr("<parameter>"));
        EXPECT_THAT(text(strings, 13974, 4294967295U), HasSubstr("4294967295"));
    }
}
