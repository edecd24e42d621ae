#include <bit>

#include "utils/digest/shacode.h"
#include "utils/digest/utdigest.h"
#include "utils/etc/utbytes.h"
#include "utils/etc/utcpu.h"

namespace {

struct a_sha1_state {
    uint32 a, b, c, d, e;
};

/// The message schedule, of which only the last sixteen words are ever needed (FIPS 180-4 section
/// 6.1.3).
class Schedule {
  public:
    explicit Schedule(const a_byte* block) {
        for (std::size_t i = 0; i < 16; ++i) _words[i] = ut_load_be32(block + 4 * i);
    }
    uint32 word(unsigned t) {
        if (t >= 16) {
            _words[t % 16] = std::rotl(_words[(t + 13) % 16] ^ _words[(t + 8) % 16] ^
                                           _words[(t + 2) % 16] ^ _words[t % 16],
                                       1);
        }
        return _words[t % 16];
    }

  private:
    uint32 _words[16];
};

/// Twenty steps with one function and constant, five at a time so that the variables change places
/// by their names.
template <unsigned First, uint32 Constant, class Mix>
inline void rounds(a_sha1_state& s, Schedule& schedule, Mix mix) {
    const auto step = [&](unsigned t, uint32 a, uint32& b, uint32 c, uint32 d, uint32& e) {
        e += std::rotl(a, 5) + mix(b, c, d) + Constant + schedule.word(t);
        b = std::rotl(b, 30);
    };
#pragma GCC unroll 4
    for (unsigned t = First; t < First + 20; t += 5) {
        step(t, s.a, s.b, s.c, s.d, s.e);
        step(t + 1, s.e, s.a, s.b, s.c, s.d);
        step(t + 2, s.d, s.e, s.a, s.b, s.c);
        step(t + 3, s.c, s.d, s.e, s.a, s.b);
        step(t + 4, s.b, s.c, s.d, s.e, s.a);
    }
}

// The functions of FIPS 180-4 section 4.1.1, two with an operation less than there.
uint32 choose(uint32 x, uint32 y, uint32 z) {
    return z ^ (x & (y ^ z));
}
uint32 parity(uint32 x, uint32 y, uint32 z) {
    return x ^ y ^ z;
}
uint32 majority(uint32 x, uint32 y, uint32 z) {
    return (x & y) | (z & (x | y));
}

inline void compress_block(uint32* state, const a_byte* block) {
    Schedule schedule(block);
    a_sha1_state s = {state[0], state[1], state[2], state[3], state[4]};
    rounds<0, 0x5a827999>(s, schedule, choose);
    rounds<20, 0x6ed9eba1>(s, schedule, parity);
    rounds<40, 0x8f1bbcdc>(s, schedule, majority);
    rounds<60, 0xca62c1d6>(s, schedule, parity);
    state[0] += s.a;
    state[1] += s.b;
    state[2] += s.c;
    state[3] += s.d;
    state[4] += s.e;
}

a_compress_code best_code() {
    return ut_cpu_has_sha() ? ut_sha1_instructions : ut_sha1_plain;
}

}  // namespace

const uint32 a_sha1_algorithm::initial_state[5] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476,
                                                   0xc3d2e1f0};

void ut_sha1_plain(uint32* state, const a_byte* blocks, std::size_t count) {
    for (; count != 0; --count, blocks += 64) compress_block(state, blocks);
}

void a_sha1_algorithm::compress(uint32* state, const a_byte* blocks, std::size_t count) {
    ut_code_for_cpu<best_code>()(state, blocks, count);
}
