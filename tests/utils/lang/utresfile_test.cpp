#include "utils/lang/utresfile.h"

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "tests/scratch.h"
#include "tests/utils/lang/imagebuilder.h"
#include "tests/utils/lang/memoryresfile.h"

namespace {

constexpr size_t RootTable = sizeof(QXResFileImage);

ImageBuilder sample() {
    ImageBuilder builder;
    builder.Add(0x1234, "found").Add(0x1235, "next").Add(0xFFFF, "last").Add(0, "first");
    return builder;
}

std::string text_in(const std::string& image, uint32 id) {
    MemoryResFile file(image);
    return text_of(file, id);
}

}  // namespace

TEST(ResFile, every_division_into_levels_finds_every_text) {
    const ImageBuilder::LevelBits divisions[] = {{8, 8},  {16},      {1, 15},
                                                 {15, 1}, {5, 6, 5}, {1, 1, 1, 13}};
    const uint32 ids[] = {0, 1, 0x1234, 0x1235, 0x7FFF, 0x8000, 0xFFFF};
    for (const ImageBuilder::LevelBits& bits : divisions) {
        ImageBuilder builder(bits);
        for (uint32 id : ids) builder.Add(id, "text " + std::to_string(id));
        MemoryResFile file(builder.Image());
        for (uint32 id : ids) EXPECT_EQ(text_of(file, id), "text " + std::to_string(id));
        for (uint32 absent : {2U, 0x1236U, 0x1334U}) EXPECT_EQ(text_of(file, absent), "");
    }
}

TEST(ResFile, a_head_that_breaks_a_rule_is_refused) {
    const uint32 size = static_cast<uint32>(sample().Image().size());
    using Head = QXResFileImage;
    const struct {
        size_t offset;
        std::vector<uint32> valid, invalid;
    } rows[] = {
        {0, {QX_RES_SIGNATURE}, {QX_RES_SIGNATURE + 1}},
        {offsetof(Head, _endian_detect), {}, {0x78563412}},
        {offsetof(Head, _version), {}, {1}},
        {offsetof(Head, _level_bits),
         {0x04040404},
         {0x00000708, 0x00010808, 0x01000808, 0x00080008, 0x00080800, 0x000020F0}},
        {offsetof(Head, _root_offset), {size - 1}, {size, 0xFFFFFFFF}},
    };
    const auto opens = [](size_t offset, uint32 word) {
        ImageBuilder builder = sample();
        builder.SetWord(offset, word);
        return MemoryResFile(builder.Image()).IsOpen();
    };
    for (const auto& [offset, valid, invalid] : rows) {
        for (const uint32 word : valid) EXPECT_TRUE(opens(offset, word)) << offset << ' ' << word;
        for (const uint32 word : invalid)
            EXPECT_FALSE(opens(offset, word)) << offset << ' ' << word;
    }
}

TEST(ResFile, an_image_cut_anywhere_gives_whole_texts_or_none) {
    const std::string whole = sample().Describe("UTF-8").Image();
    MemoryResFile complete(whole);
    for (size_t size = 0; size < whole.size(); ++size) {
        MemoryResFile file(whole.substr(0, size));
        EXPECT_EQ(file.IsOpen(), size > RootTable) << size;
        for (uint32 id : {0U, 0x1234U, 0xFFFFU}) {
            EXPECT_THAT(text_of(file, id), testing::AnyOf("", text_of(complete, id))) << size;
        }
    }
}

TEST(ResFile, an_offset_or_length_that_leaves_the_image_is_no_text) {
    const size_t entry = RootTable + 4 * 0x12;
    const uint32 size = static_cast<uint32>(sample().Image().size());
    const uint32 table = sample().Word(entry);
    for (const uint32 offset : {size, size - 1, size - 0x34 * 4 - 3, 0xFFFFFFFFU, 0xFFFFFF30U}) {
        ImageBuilder first_level = sample();
        first_level.SetWord(entry, offset);
        EXPECT_EQ(text_in(first_level.Image(), 0x1234), "") << offset;
        ImageBuilder last_level = sample();
        last_level.SetWord(table + 4 * 0x34, offset);
        EXPECT_EQ(text_in(last_level.Image(), 0x1234), "") << offset;
    }

    std::string image = sample().Add(0x1236, "tail").Image();
    image[image.size() - 6] = 5;
    EXPECT_EQ(text_in(image, 0x1236), "");

    ImageBuilder tables_in_each_other = sample();
    tables_in_each_other.SetWord(entry, RootTable);
    tables_in_each_other.SetWord(RootTable + 4 * 0x34, 2);
    EXPECT_LE(text_in(tables_in_each_other.Image(), 0x1234).size(), size);
}

TEST(ResFile, a_text_is_cut_to_the_buffer_and_terminated) {
    MemoryResFile file(ImageBuilder().Add(7, "12345").Image());
    for (size_t len = 0; len <= 7; ++len) {
        char buffer[] = "#######";
        const std::string fitting = std::string("12345").substr(0, len == 0 ? 0 : len - 1);
        EXPECT_EQ(file.GetString(7, buffer, len), fitting.size());
        EXPECT_EQ(buffer, len == 0 ? "#######" : fitting);
        EXPECT_EQ(file.GetString(8, buffer, len), 0U);
    }
}

TEST(ResFile, units_of_16_bits_are_counted_as_such) {
    MemoryResFile file(ImageBuilder().Add(7, std::string("a\0\xAC\x20!", 5)).Image());
    uint16 units[3] = {9, 9, 9};
    EXPECT_EQ(file.GetStringUTF16(7, units, 1), 0U);
    EXPECT_THAT(units, testing::ElementsAre(0, 9, 9));
    EXPECT_EQ(file.GetStringUTF16(7, units, 3), 2U);
    EXPECT_THAT(units, testing::ElementsAre('a', 0x20AC, 0));
    EXPECT_EQ(file.GetStringUTF16(7, units, 2), 1U);
    EXPECT_THAT(units, testing::ElementsAre('a', 0, 0));
    EXPECT_EQ(file.GetStringUTF16(7, units, 0), 0U);
    EXPECT_EQ(file.GetStringUTF16(8, units, 3), 0U);
}

TEST(ResFile, the_description_names_the_character_set) {
    const std::string long_label(96 - sizeof("charset=;language="), ' ');
    const std::pair<std::string, const char*> rows[] = {
        {"charset=ISO-8859-2;language=pl", "ISO-8859-2"},
        {"12345678utf8;language=", "UTF-8"},
        {"charset=UTF-16;language=en", "UTF-16"},
        {"charset=UTF-8", nullptr},
        {"charset=unheard-of;language=en", nullptr},
        {"short;language=en", nullptr},
        {"charset=UTF-8" + long_label + ";language=en", nullptr},
    };
    for (const auto& [description, label] : rows) {
        MemoryResFile file(ImageBuilder().Add(RES_DESCRIPTION_STRING, description).Image());
        EXPECT_EQ(file.GetCharset(), ls_find_charset(label)) << description;
        EXPECT_EQ(file.UTF16Supported(), file.GetCharset() == ls_find_charset("UTF-16"));
    }
}

TEST(ResFile, only_an_image_opens_and_only_one_at_a_time) {
    ScratchFolder scratch;
    const std::string good = scratch.file_with("good.res", sample().Image());
    const std::string pipe = scratch.file("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    UTQXResFile file;
    for (const std::string& bad :
         {scratch.file("missing"), scratch.file("."), pipe, scratch.file_with("empty", ""),
          scratch.file_with("junk", "RESO")}) {
        EXPECT_TRUE(file.Open(good.c_str()));
        EXPECT_EQ(text_of(file, 0x1234), "found");
        EXPECT_FALSE(file.Open(bad.c_str())) << bad;
        EXPECT_EQ(text_of(file, 0x1234), "");
    }
    EXPECT_FALSE(file.Open(good.c_str(), true));
    EXPECT_TRUE(file.Open(good.c_str(), false));
}

TEST(ResFile, base_names_are_made_of_label_variant_and_release) {
    UTQXResFile file;
    const auto name = [&file](const std::string& label, bool iq, size_t len = 32) {
        std::string buffer(len, '#');
        const bool fits = file.get_resource_file_base_name(buffer.data(), len, label.c_str(), iq);
        EXPECT_EQ(fits, buffer[0] != '\0');
        return std::string(buffer.c_str());
    };
    EXPECT_EQ(name("en", true), "nxlgen_iq12.res");
    EXPECT_THAT(name("ja", false), testing::MatchesRegex("nxlgja12_(utf8|sjis|eucjp).res"));
    EXPECT_EQ(name("de", false, 13), "nxlgde12.res");
    EXPECT_EQ(name("de", false, 12), "");
    EXPECT_EQ(name(std::string(99, 'x'), false, 200), "");
}
