#include "utils/lang/utresfile.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

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
    // Two levels go through the two bytes of the identifier.
    const ImageBuilder builder = sample();
    EXPECT_GT(builder.Word(builder.Word(RootTable + 4 * 0x12) + 4 * 0x34), 0U);
}

TEST(ResFile, a_head_that_breaks_a_rule_is_refused) {
    const size_t endian = offsetof(QXResFileImage, _endian_detect);
    const size_t version = offsetof(QXResFileImage, _version);
    const size_t levels = offsetof(QXResFileImage, _level_bits);
    const size_t root = offsetof(QXResFileImage, _root_offset);
    const uint32 size = static_cast<uint32>(sample().Image().size());
    const struct {
        size_t offset;
        uint32 word;
        bool valid;
    } rows[] = {
        {0, QX_RES_SIGNATURE, true}, {0, QX_RES_SIGNATURE + 1, false}, {endian, 0x78563412, false},
        {version, 1, false},         {levels, 0x04040404, true},       {levels, 0x00000708, false},
        {levels, 0x00010808, false}, {levels, 0x01000808, false},      {levels, 0x00080008, false},
        {levels, 0x00080800, false}, {levels, 0x000020F0, false},      {root, size - 1, true},
        {root, size, false},         {root, 0xFFFFFFFF, false},
    };
    for (const auto& row : rows) {
        ImageBuilder builder = sample();
        builder.SetWord(row.offset, row.word);
        EXPECT_EQ(MemoryResFile(builder.Image()).IsOpen(), row.valid) << row.offset << row.word;
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

    ImageBuilder at_end = sample();
    at_end.Add(0x1236, "tail");
    std::string image = at_end.Image();
    image[image.size() - 6] = 5;
    EXPECT_EQ(text_in(image, 0x1236), "");
    image[image.size() - 6] = 4;
    EXPECT_EQ(text_in(image, 0x1236), "tail");

    ImageBuilder tables_in_each_other = sample();
    tables_in_each_other.SetWord(entry, RootTable);
    tables_in_each_other.SetWord(RootTable + 4 * 0x34, 2);
    EXPECT_LE(text_in(tables_in_each_other.Image(), 0x1234).size(), size);
}

TEST(ResFile, a_text_is_cut_to_the_buffer_and_terminated) {
    MemoryResFile file(ImageBuilder().Add(7, "12345").Image());
    for (size_t len = 1; len <= 7; ++len) {
        char buffer[] = "#######";
        EXPECT_EQ(file.GetString(7, buffer, len), std::min<size_t>(5, len - 1));
        EXPECT_EQ(buffer, std::string("12345").substr(0, len - 1));
    }
    char untouched[] = "#";
    EXPECT_EQ(file.GetString(7, untouched, 0), 0U);
    EXPECT_EQ(file.GetString(8, untouched, 1), 0U);
    EXPECT_STREQ(untouched, "#");
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
        {"charset=UTF-8", nullptr},
        {"charset=unheard-of;language=en", nullptr},
        {"charset=;language=en", nullptr},
        {"short;language=en", nullptr},
        {"charset=UTF-8" + long_label + ";language=en", nullptr},
    };
    for (const auto& [description, label] : rows) {
        MemoryResFile file(ImageBuilder().Add(RES_DESCRIPTION_STRING, description).Image());
        EXPECT_EQ(file.GetCharset(), ls_find_charset(label)) << description;
        EXPECT_FALSE(file.UTF16Supported());
    }
    EXPECT_TRUE(MemoryResFile(ImageBuilder().Describe("UTF-16").Image()).UTF16Supported());
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
    const auto name = [&file](const char* label, bool iq, size_t len = 32) {
        std::string buffer(len, '#');
        const bool fits = file.get_resource_file_base_name(buffer.data(), len, label, iq);
        buffer.resize(std::strlen(buffer.data()));
        EXPECT_EQ(fits, !buffer.empty());
        return buffer;
    };
    EXPECT_EQ(name("de", false), "nxlgde12.res");
    EXPECT_EQ(name("en", true), "nxlgen_iq12.res");
    EXPECT_THAT(name("ja", false), testing::MatchesRegex("nxlgja12_(utf8|sjis|eucjp).res"));
    EXPECT_EQ(name("de", false, 13), "nxlgde12.res");
    EXPECT_EQ(name("de", false, 12), "");
    EXPECT_EQ(name(std::string(99, 'x').c_str(), false, 200), "");
}
