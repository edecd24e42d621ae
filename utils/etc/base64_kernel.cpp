#include "utils/etc/base64_kernel.h"

#include <atomic>
#include <cstring>

#include "utils/etc/base64_kernel_x86.h"

namespace {

struct a_char_pair {
    char chars[2];
};

// The two characters for every 12 bits.
struct a_pair_table {
    constexpr a_pair_table() : of() {
        for (uint32 bits = 0; bits < 4096; ++bits)
            of[bits] = {{base64_alphabet[bits >> 6], base64_alphabet[bits & 63]}};
    }
    a_char_pair of[4096];
};
constexpr a_pair_table pairs;

// The value of every character, shifted to where it belongs in the three bytes of its group, the
// first of which is lowest.
constexpr uint32 invalid = 0x80000000;
struct a_shifted_values {
    constexpr a_shifted_values() : of() {
        for (uint32 c = 0; c < 256; ++c) {
            const uint32 value = c < 128 ? base64_values.of[c] : base64_no_value;
            const bool valid = value != base64_no_value;
            of[0][c] = valid ? value << 2 : invalid;
            of[1][c] = valid ? value >> 4 | (value & 15) << 12 : invalid;
            of[2][c] = valid ? (value & 0x3C) << 6 | (value & 3) << 22 : invalid;
            of[3][c] = valid ? value << 16 : invalid;
        }
    }
    uint32 decode(const a_byte* c) const {
        return of[0][c[0]] | of[1][c[1]] | of[2][c[2]] | of[3][c[3]];
    }
    uint32 of[4][256];
};
constexpr a_shifted_values shifted_values;

uint32 big_endian_word(const a_byte* p) {
    return uint32{p[0]} << 24 | uint32{p[1]} << 16 | uint32{p[2]} << 8 | p[3];
}

void put_pair(char* dst, uint32 bits) {
    std::memcpy(dst, pairs.of[bits].chars, 2);
}

void put_3(a_byte* dst, uint32 bytes) {
    dst[0] = static_cast<a_byte>(bytes);
    dst[1] = static_cast<a_byte>(bytes >> 8);
    dst[2] = static_cast<a_byte>(bytes >> 16);
}

// Four groups at a time, from three words of three groups' worth and a bit.
void encode_plain(char* dst, const a_byte* src, size_t groups) {
    for (; groups >= 4; groups -= 4, src += 12, dst += 16) {
        const uint32 a = big_endian_word(src);
        const uint32 b = big_endian_word(src + 4);
        const uint32 c = big_endian_word(src + 8);
        put_pair(dst, a >> 20);
        put_pair(dst + 2, a >> 8 & 0xFFF);
        put_pair(dst + 4, (a << 4 & 0xFF0) | b >> 28);
        put_pair(dst + 6, b >> 16 & 0xFFF);
        put_pair(dst + 8, b >> 4 & 0xFFF);
        put_pair(dst + 10, (b << 8 & 0xF00) | c >> 24);
        put_pair(dst + 12, c >> 12 & 0xFFF);
        put_pair(dst + 14, c & 0xFFF);
    }
    for (; groups != 0; --groups, src += 3, dst += 4) {
        const uint32 bits = uint32{src[0]} << 16 | uint32{src[1]} << 8 | src[2];
        put_pair(dst, bits >> 12);
        put_pair(dst + 2, bits & 0xFFF);
    }
}

void encode_lines_plain(char* dst, const a_byte* src, size_t lines, size_t groups) {
    for (; lines != 0; --lines, src += 3 * groups) {
        encode_plain(dst, src, groups);
        dst = base64_break_line(dst + 4 * groups);
    }
}

void decode_plain(a_base64_spans& spans) {
    do {
        const size_t done = base64_decode_run_plain(spans.out, spans.in, spans.groups_to_decode());
        spans.advance(4 * done, 3 * done);
    } while (base64_pass_line_break(spans));
}

#ifdef QUOREL_BASE64_X86
constexpr const a_base64_kernel* avx2_kernels[] = {&base64_plain_kernel, &base64_ssse3_kernel,
                                                   &base64_avx2_kernel, nullptr};
constexpr const a_base64_kernel* ssse3_kernels[] = {&base64_plain_kernel, &base64_ssse3_kernel,
                                                    nullptr};
#endif
constexpr const a_base64_kernel* plain_kernels[] = {&base64_plain_kernel, nullptr};

std::atomic<const a_base64_kernel*> chosen_kernel{nullptr};

}  // namespace

const a_base64_kernel base64_plain_kernel = {"plain", encode_plain, encode_lines_plain,
                                             decode_plain};

size_t base64_decode_run_plain(a_byte* dst, const a_byte* src, size_t groups) {
    size_t done = 0;
    for (; done + 2 <= groups; done += 2, src += 8, dst += 6) {
        const uint32 first = shifted_values.decode(src);
        const uint32 second = shifted_values.decode(src + 4);
        if (((first | second) & invalid) != 0) break;
        put_3(dst, first);
        put_3(dst + 3, second);
    }
    for (; done < groups; ++done, src += 4, dst += 3) {
        const uint32 bytes = shifted_values.decode(src);
        if ((bytes & invalid) != 0) break;
        put_3(dst, bytes);
    }
    return done;
}

const a_base64_kernel& base64_kernel() {
    const a_base64_kernel* chosen = chosen_kernel.load(std::memory_order_relaxed);
    if (chosen != nullptr) return *chosen;
    const a_base64_kernel* const* last = base64_usable_kernels();
    while (last[1] != nullptr) ++last;
    return **last;
}

const a_base64_kernel* const* base64_usable_kernels() {
#ifdef QUOREL_BASE64_X86
    if (__builtin_cpu_supports("avx2")) return avx2_kernels;
    if (__builtin_cpu_supports("ssse3")) return ssse3_kernels;
#endif
    return plain_kernels;
}

void base64_set_kernel(const a_base64_kernel* kernel) {
    chosen_kernel.store(kernel, std::memory_order_relaxed);
}
