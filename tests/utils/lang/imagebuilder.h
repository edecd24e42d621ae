#ifndef QUOREL_TESTS_UTILS_LANG_IMAGEBUILDER_H
#define QUOREL_TESTS_UTILS_LANG_IMAGEBUILDER_H

#include <array>
#include <cstring>
#include <string>

#include "utils/lang/utresfile.h"

/// Makes resource images, one table below the other.
class ImageBuilder {
  public:
    using LevelBits = std::array<a_byte, 4>;

    explicit ImageBuilder(LevelBits bits = {8, 8, 0, 0}) : _bits(bits) {
        const QXResFileImage head{QX_RES_SIGNATURE, QX_RES_ENDIAN, 0, {}, sizeof(QXResFileImage)};
        _image.assign(reinterpret_cast<const char*>(&head), sizeof head);
        std::memcpy(_image.data() + offsetof(QXResFileImage, _level_bits), bits.data(), 4);
        NewTable(bits[0]);
    }

    ImageBuilder& Add(uint32 id, const std::string& text) {
        size_t entry = sizeof(QXResFileImage);
        unsigned left = 16;
        for (size_t level = 0; level < 4 && left > 0; ++level) {
            left -= _bits[level];
            entry += 4 * ((id >> left) & ((1U << _bits[level]) - 1));
            if (left == 0) break;
            if (Word(entry) == 0) SetWord(entry, NewTable(_bits[level + 1]));
            entry = Word(entry);
        }
        SetWord(entry, static_cast<uint32>(_image.size()));
        _image.push_back(static_cast<char>(text.size() & 0xFF));
        _image.push_back(static_cast<char>(text.size() >> 8));
        _image += text;
        return *this;
    }

    ImageBuilder& Describe(const std::string& charset) {
        return Add(RES_DESCRIPTION_STRING, "charset=" + charset + ";language=en");
    }

    const std::string& Image() const { return _image; }

    uint32 Word(size_t offset) const {
        uint32 word;
        std::memcpy(&word, _image.data() + offset, sizeof word);
        return word;
    }
    void SetWord(size_t offset, uint32 word) {
        std::memcpy(_image.data() + offset, &word, sizeof word);
    }

  private:
    uint32 NewTable(unsigned bits) {
        const size_t offset = _image.size();
        _image.resize(offset + (size_t{4} << bits));
        return static_cast<uint32>(offset);
    }

    LevelBits _bits;
    std::string _image;
};

#endif
