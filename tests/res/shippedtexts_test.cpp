// The resource files that the build makes, read with the library's own reader.

#include <string>

#include <gmock/gmock.h>

#include "utils/lang/utlangstring.h"

namespace {

// The errors that have texts of their own, by what their text takes.
constexpr uint32 plain_texts[] = {17590, 13975, 13977, 14003, 14215, 14216, 9123,  17440, 17441,
                                  17589, 17932, 17993, 18541, 14909, 14530, 25988, 26617, 26618};
constexpr uint32 texts_with_parameter[] = {9845,  9118,  14824, 13345, 13346,
                                           13347, 17446, 14554, 13972, 17921};
constexpr uint32 texts_with_code[] = {13974, 11242, 11237, 13976, 17591, 17587};

const UTLocale locale(ls_english(), ls_find_charset("UTF-8"));

template <class... Args>
std::string text(UTLangStringBase& strings, uint32 id, Args... args) {
    char buffer[256];
    strings.FormatMiscLangStr(id, buffer, sizeof buffer, args...);
    return buffer;
}

}  // namespace

TEST(ShippedTexts, every_error_has_its_text_and_argument_in_every_language) {
    using testing::HasSubstr;
    using testing::Not;
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
        EXPECT_GE(std::stoi(text(strings, RES_VERSION_STRING)), 120);
        for (const uint32 id : plain_texts) {
            EXPECT_NE(text(strings, id), "") << id;
            EXPECT_THAT(text(strings, id), Not(HasSubstr("%"))) << id;
        }
        for (const uint32 id : texts_with_parameter) {
            EXPECT_THAT(text(strings, id, "<parameter>"), HasSubstr("<parameter>")) << id;
        }
        for (const uint32 id : texts_with_code) {
            EXPECT_THAT(text(strings, id, 4294967295U), HasSubstr("4294967295")) << id;
        }
    }
}
