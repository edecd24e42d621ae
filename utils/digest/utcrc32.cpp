#include "utils/digest/utcrc32.h"

#include <array>

#include "utils/etc/utbytes.h"

namespace {

constexpr uint32 reversed_polynomial = 0xedb88320;

using a_crc_table = std::array<std::array<uint32, 256>, 8>;

/// Table n gives what a byte contributes to the register when n more bytes follow it, so that eight
/// bytes are taken with eight independent lookups.
constexpr a_crc_table make_tables() {
    a_crc_table tables{};
    for (uint32 byte = 0; byte < 256; ++byte) {
        uint32 crc = byte;
        for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) ? reversed_polynomial : 0);
        tables[0][byte] = crc;
    }
    for (std::size_t n = 1; n < 8; ++n) {
        for (std::size_t byte = 0; byte < 256; ++byte) {
            const uint32 shorter = tables[n - 1][byte];
            tables[n][byte] = (shorter >> 8) ^ tables[0][shorter & 0xff];
        }
    }
    return tables;
}

constexpr a_crc_table tables = make_tables();

inline uint32 four_bytes(uint32 word, std::size_t following) {
    return tables[following + 3][word & 0xff] ^ tables[following + 2][(word >> 8) & 0xff] ^
           tables[following + 1][(word >> 16) & 0xff] ^ tables[following][word >> 24];
}

}  // namespace

void UTCRC32::add(const void* data, std::size_t len) {
    const a_byte* from = static_cast<const a_byte*>(data);
    uint32 crc = _register;
    for (; len >= 8; len -= 8, from += 8) {
        // The register meets the first four bytes only; the other four have nothing to wait for.
        crc = four_bytes(crc ^ ut_load_le32(from), 4) ^ four_bytes(ut_load_le32(from + 4), 0);
    }
    for (; len != 0; --len, ++from) crc = (crc >> 8) ^ tables[0][(crc ^ *from) & 0xff];
    _register = crc;
}
