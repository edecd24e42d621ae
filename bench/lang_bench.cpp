// Message lookups in the shipped English texts, against a peer that trusts the image: two dependent
// loads and the copy. A round is a million lookups, so its milliseconds are nanoseconds per lookup.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/paired.h"
#include "utils/lang/utlangstring.h"

namespace {

constexpr int Lookups = 1'000'000;
constexpr int Rounds = 15;
constexpr const char* Image = RES_FOLDER "/nxlgen12.res";

/// The image in memory, read as if every image were right.
class BareTables {
  public:
    explicit BareTables(const char* path) {
        std::FILE* file = std::fopen(path, "rb");
        if (file == nullptr) return;
        _image.resize(1 << 20);
        _image.resize(std::fread(_image.data(), 1, _image.size(), file));
        std::fclose(file);
        std::memcpy(&_head, _image.data(), sizeof _head);
    }

    bool IsOfTwoLevels() const { return _head._level_bits[0] + _head._level_bits[1] == 16; }

    // Kept whole: inlined, the copy of at most 255 bytes becomes a slow string instruction.
    [[gnu::noipa]] size_t GetString(uint32 id, char* buf, size_t len) const {
        const unsigned bits = _head._level_bits[1];
        const uint32 table = Word(_head._root_offset + 4 * (id >> bits));
        const uint32 record = Word(table + 4 * (id & ((1U << bits) - 1)));
        uint16 length = 0;
        std::memcpy(&length, _image.data() + record, sizeof length);
        const size_t count = std::min<size_t>(length, len - 1);
        std::memcpy(buf, _image.data() + record + sizeof length, count);
        buf[count] = '\0';
        return count;
    }

  private:
    uint32 Word(uint32 offset) const {
        uint32 word = 0;
        std::memcpy(&word, _image.data() + offset, sizeof word);
        return word;
    }

    std::vector<char> _image;
    QXResFileImage _head{};
};

std::vector<uint32> known_ids(UTResFile& file) {
    std::vector<uint32> ids;
    char text[256];
    for (uint32 id = 0; id < 0x10000; ++id) {
        if (file.GetString(id, text, sizeof text) > 0) ids.push_back(id);
    }
    return ids;
}

/// Looks texts up in an order without pattern.
template <class Source>
auto lookups(const std::vector<uint32>& ids, Source& source) {
    return [&ids, &source] {
        char text[256];
        size_t sum = 0;
        uint32 state = 1;
        for (int i = 0; i < Lookups; ++i) {
            state = state * 1664525U + 1013904223U;
            const auto index = static_cast<size_t>(uint64{state} * ids.size() >> 32);
            sum += source.GetString(ids[index], text, sizeof text);
            benchmark::DoNotOptimize(text);
        }
        benchmark::DoNotOptimize(sum);
    };
}

}  // namespace

int main() {
    UTQXResFile file;
    const BareTables bare(Image);
    if (!file.Open(Image) || !bare.IsOfTwoLevels()) return 1;
    const UTLocale locale(ls_english(), ls_find_charset("UTF-8"));
    UTLangStringBase strings(locale);
    strings.AddFile(&file);
    strings.SetCharset(locale.GetOSCharset());

    const std::vector<uint32> ids = known_ids(file);
    const PairedBenchmark paired(Rounds, "ns");
    paired.run("UTQXResFile::GetString / trusting peer", 0, lookups(ids, file), lookups(ids, bare));
    paired.run("UTLangString::GetString / trusting peer", 0, lookups(ids, strings),
               lookups(ids, bare));
}
