#include "utils/lang/utlangstring.h"

#include <thread>
#include <variant>
#include <vector>

#include <gtest/gtest.h>

#include "tests/scratch.h"
#include "tests/utils/lang/imagebuilder.h"
#include "tests/utils/lang/memoryresfile.h"

namespace {

const CharsetInfo* const utf8 = ls_find_charset("UTF-8");
const CharsetInfo* const latin1 = ls_find_charset("ISO-8859-1");
const UTLocale german_locale(ls_find_language("de"), utf8);

std::string text_of(UTLangStringBase& strings, uint32 id, size_t len = 256) {
    std::vector<char> buffer(len, '#');
    const size_t length = strings.GetString(id, buffer.data(), len);
    EXPECT_EQ('\0', buffer[length]);
    return {buffer.data(), length};
}

using Result = std::variant<ls_init_return, std::string>;

struct Files {
    /// Adds a file that holds its own name as text 1, in German "u umlaut" as text 2, and text
    /// 3 in English only.
    void Add(const std::string& name, const char* version = "120") const {
        ImageBuilder builder;
        builder.Describe("UTF-8").Add(1, name).Add(RES_VERSION_STRING, version);
        if (name.starts_with("nxlgde")) builder.Add(2, "\xC3\xBC").Add(3, "");
        if (name.starts_with("nxlgen")) builder.Add(3, "English only");
        std::ofstream(scratch.file(name), std::ios::binary) << builder.Image();
    }
    Result Start(const char* label, bool iq = false) const {
        UTLangString strings(german_locale, folder.c_str());
        const ls_init_return result = strings.Init(label, utf8, iq);
        return result != LS_INIT_OKAY ? Result(result) : Result(text_of(strings, 1));
    }
    ScratchFolder scratch;
    const std::string folder = scratch.file("");
};
}  // namespace

TEST(LangString, each_file_is_converted_from_its_own_character_set) {
    MemoryResFile wide(
        ImageBuilder().Describe("UTF-16").Add(1, std::string("\xE9\0!\0", 4)).Image());
    MemoryResFile narrow(ImageBuilder().Describe("UTF-8").Add(2, "\xC3\xA9\xE2\x82\xAC!").Image());
    UTLangStringBase strings(german_locale);
    strings.AddFile(&wide);
    strings.AddFile(&narrow);
    strings.SetCharset(latin1);
    EXPECT_EQ("\xE9!", text_of(strings, 1));
    EXPECT_EQ("\xE9?", text_of(strings, 2, 3));
    strings.SetCharset(utf8);
    EXPECT_EQ("", text_of(strings, 1, 2));  // half a character is none
    strings.SetCharset(ls_find_charset("UTF-16"));
    EXPECT_EQ(std::string("\xE9\0\xAC\x20", 4), text_of(strings, 2, 7));
}

TEST(LangString, parameters_are_put_into_texts) {
    ImageBuilder texts;
    texts.Describe("UTF-8").Add(1, "File %1: error %2!u!.").Add(2, std::string(600, 'x') + "%1");
    MemoryResFile file(texts.Image());
    UTLangStringBase strings(german_locale);
    strings.AddFile(&file);
    char buffer[1024];
    EXPECT_EQ(511U, strings.FormatMiscLangStr(2, buffer, sizeof buffer, "a"));
    strings.SetCharset(utf8);
    strings.SetArgCharset(latin1);
    strings.FormatMiscLangStr(1, buffer, sizeof buffer, "\xE9", 5U);
    EXPECT_STREQ("File \xC3\xA9: error 5.", buffer);
}

TEST(LangString, conversions_on_many_threads_do_not_mix) {
    MemoryResFile file(
        ImageBuilder().Describe("UTF-8").Add(1, "\xC3\xA9%1").Add(2, "\xC3\xA8%1").Image());
    UTLangStringBase strings(german_locale);
    strings.AddFile(&file);
    strings.SetCharset(latin1);
    strings.SetArgCharset(utf8);
    std::vector<std::thread> threads;
    for (uint32 id : {1U, 2U, 1U, 2U}) {
        threads.emplace_back([&strings, id] {
            const std::string expected = id == 1 ? "\xE9\xE0" : "\xE8\xE0";
            char buffer[16];
            for (int i = 0; i < 2000; ++i) {
                strings.FormatMiscLangStr(id, buffer, sizeof buffer, "\xC3\xA0");
                ASSERT_EQ(expected, buffer);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
}

TEST(LangStringInit, takes_the_wanted_language_and_falls_back_to_english) {
    const Files files;
    EXPECT_EQ(Result(LS_INIT_CANT_FIND_FILE), files.Start("de"));
    EXPECT_EQ(Result(LS_INIT_CANT_FIND_IQ_FILE), files.Start("de", true));
    files.Add("nxlgde12.res");
    files.Add("nxlgen12.res");
    files.Add("nxlgen_iq12.res");
    for (const char* label : {"DE_ch.UTF-8", "tlh", static_cast<const char*>(nullptr)})
        EXPECT_EQ(Result("nxlgde12.res"), files.Start(label));
    EXPECT_EQ(Result("nxlgen12.res"), files.Start("fr"));
    EXPECT_EQ(Result("nxlgen_iq12.res"), files.Start("de", true));

    const UTLocale locale(ls_find_language("de"), latin1);
    UTLangString strings(locale, files.folder.c_str());
    EXPECT_EQ(LS_INIT_OKAY, strings.Init(nullptr, nullptr, false));
    EXPECT_EQ("\xFC", text_of(strings, 2)) << "the system's character set";
    EXPECT_EQ("English only", text_of(strings, 3)) << "what the wanted file lacks";
}

TEST(LangStringInit, refuses_versions_1_to_119) {
    const Files files;
    const Result bad = LS_INIT_BAD_VERSION, good = "nxlgde12.res";
    for (const auto& [version, result] :
         {std::pair{"1", bad}, {"0119 beta", bad}, {"0", good}, {"99999999999", good}}) {
        files.Add("nxlgde12.res", version);
        EXPECT_EQ(result, files.Start("de")) << version;
    }
}

TEST(LangStringInit, its_failures_have_texts_without_any_file) {
    UTLangString strings(german_locale);
    char text[512];
    strings.GetInitErrorStr(LS_INIT_CANT_FIND_FILE, text, sizeof text, "De", false);
    EXPECT_STREQ("Die Sprachdatei (nxlgde12.res) wurde nicht gefunden. "
                 "Cannot find the language resource file (nxlgde12.res).",
                 text);
}
