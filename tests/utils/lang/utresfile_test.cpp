#include "utils/lang/utresfile.h"

#include <cstddef>
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
    const ImageBuilder::LevelBits divisions[] = {{8, 8}, {16}, {5, 6, 5}, {1, 1, 1, 13}};
    const uint32 ids[] = {0, 1, 0x1234, 0x8000, 0xFFFF};
    for (const ImageBuilder::LevelBits& bits : divisions) {
        ImageBuilder builder(bits);
        for (uint32 id : ids) builder.Add(id, "text " + std::to_string(id));
        MemoryResFile file(builder.Image());
        for (uint32 id : ids) EXPECT_EQ("text " + std::to_string(id), text_of(file, id));
        for (uint32 absent : {2U, 0x1236U, 0x1334U}) EXPECT_EQ("", text_of(file, absent));
    }
}

TEST(ResFile, a_head_that_breaks_a_rule_is_refused) {
    const uint32 size = static_cast<uint32>(sample().Image().size());
    constexpr size_t bits = offsetof(QXResFileImage, _level_bits);
    constexpr size_t root = offsetof(QXResFileImage, _root_offset);
    const auto opens = [](size_t offset, uint32 word) {
        ImageBuilder builder = sample();
        builder.SetWord(offset, word);
        return MemoryResFile(builder.Image()).IsOpen();
    };
    EXPECT_FALSE(opens(0, QX_RES_SIGNATURE + 1));
    EXPECT_FALSE(opens(offsetof(QXResFileImage, _endian_detect), 0x78563412));
    EXPECT_FALSE(opens(offsetof(QXResFileImage, _version), 1));
    for (const uint32 wrong : {0x00000708, 0x01000808, 0x00080008, 0x00080800, 0x000020F0})
        EXPECT_FALSE(opens(bits, wrong)) << wrong;
    EXPECT_FALSE(opens(root, size) || opens(root, 0xFFFFFFFF));
    EXPECT_TRUE(opens(root, size - 1));
}

TEST(ResFile, an_image_cut_anywhere_gives_whole_texts_or_none) {
    const std::string whole = sample().Describe("UTF-8").Image();
    MemoryResFile complete(whole);
    for (size_t size = 0; size < whole.size(); ++size) {
        MemoryResFile file(whole.substr(0, size));
        EXPECT_EQ(size > RootTable, file.IsOpen()) << size;
        for (uint32 id : {0U, 0x1234U, 0xFFFFU}) {
            EXPECT_THAT(text_of(file, id), testing::AnyOf("", text_of(complete, id))) << size;
        }
    }
}

TEST(ResFile, an_offset_or_length_that_leaves_the_image_is_no_text) {
    const uint32 size = static_cast<uint32>(sample().Image().size());
    const uint32 first_level = RootTable + 4 * 0x12;
    for (const uint32 entry : {first_level, sample().Word(first_level) + 4 * 0x34}) {
        for (const uint32 offset :
             {size, size - 1, size - 0x34 * 4 - 3, 0xFFFFFFFFU, 0xFFFFFF30U}) {
            ImageBuilder builder = sample();
            builder.SetWord(entry, offset);
            EXPECT_EQ("", text_in(builder.Image(), 0x1234)) << offset;
        }
    }
    std::string image = sample().Add(0x1236, "tail").Image();
    image[image.size() - 6] = 5;
    EXPECT_EQ("", text_in(image, 0x1236));
}

TEST(ResFile, the_description_names_the_character_set) {
    const std::string long_label(96 - sizeof("charset=;language="), ' ');
    const std::pair<std::string, const char*> rows[] = {
        {"charset=ISO-8859-2;language=pl", "ISO-8859-2"},
        {"12345678utf8;language=", "UTF-8"},
        {"charset=UTF-8", nullptr},
        {"charset=UTF-8" + long_label + ";language=en", nullptr},
    };
    for (const auto& [description, label] : rows) {
        MemoryResFile file(ImageBuilder().Add(RES_DESCRIPTION_STRING, description).Image());
        EXPECT_EQ(ls_find_charset(label), file.GetCharset()) << description;
    }
}

TEST(ResFile, only_an_image_opens_and_only_one_at_a_time) {
    ScratchFolder scratch;
    const std::string good = scratch.file_with("good.res", sample().Image());
    const std::string pipe = scratch.file("pipe");
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
    UTQXResFile file;
    for (const std::string& bad :
         {scratch.file("missing"), scratch.file("."), pipe, scratch.file_with("junk", "RESO")}) {
        EXPECT_TRUE(file.Open(good.c_str()));
        EXPECT_EQ("found", text_of(file, 0x1234));
        EXPECT_FALSE(file.Open(bad.c_str())) << bad;
        EXPECT_EQ("", text_of(file, 0x1234));
    }
}
