#include "utils/digest/utpbkdf2.h"

#include <algorithm>

#include "utils/digest/uthmac.h"
#include "utils/etc/utbytes.h"

namespace {

using a_mac = UTHMAC<UTSHA256>;
using a_mac_block = a_wiped_bytes<a_mac::mac_size>;

/// Block number `index` of the output: the exclusive or of a chain of `iterations` codes.
void derive_block(a_mac& mac, const void* salt, std::size_t salt_len, uint32 iterations,
                  uint32 index, a_mac_block& sum) {
    a_byte index_bytes[4];
    ut_store_be32(index_bytes, index);
    mac.add(salt, salt_len);
    mac.add(index_bytes, sizeof index_bytes);
    a_mac_block link;
    mac.end(link.data);
    std::copy_n(link.data, link.size, sum.data);
    // From 1: the code above is the first, so that 0 iterations are as 1.
    for (uint32 i = 1; i < iterations; ++i) {
        mac.add(link.data, link.size);
        mac.end(link.data);
        for (std::size_t byte = 0; byte < sum.size; ++byte) sum.data[byte] ^= link.data[byte];
    }
}

}  // namespace

void ut_pbkdf2_hmac_sha256(const void* password, std::size_t password_len, const void* salt,
                           std::size_t salt_len, uint32 iterations, a_byte* out,
                           std::size_t out_len) {
    a_mac mac(password, password_len);
    a_mac_block block;
    for (uint32 index = 1; out_len != 0; ++index) {
        derive_block(mac, salt, salt_len, iterations, index, block);
        const std::size_t taken = std::min(out_len, block.size);
        out = std::copy_n(block.data, taken, out);
        out_len -= taken;
    }
}
