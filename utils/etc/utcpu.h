#ifndef QUOREL_UTILS_ETC_UTCPU_H
#define QUOREL_UTILS_ETC_UTCPU_H

/// Which optional instructions this processor has, asked at run time: the library runs on any
/// i686 or x86-64 processor, and code for newer ones is chosen by these answers alone. Each answer
/// costs a cpuid instruction, which is slow, so callers keep it.

#include <atomic>

#include <cpuid.h>

#include "utils/etc/uttypes.h"

/// For a function that contains such instructions: compiles it for `features` (a comma-separated
/// list) and realigns its stack, because the vector registers are saved there and a 32-bit host may
/// be built with stacks aligned to 4 bytes only.
#if defined(__i386__)
#define UT_CODE_FOR(features) __attribute__((target(features), force_align_arg_pointer))
#else
#define UT_CODE_FOR(features) __attribute__((target(features)))
#endif

/// For a helper that is inlined into functions marked UT_CODE_FOR with the same features.
#define UT_INLINE_CODE_FOR(features) __attribute__((target(features), always_inline)) inline

/// One leaf of cpuid; all zero when the processor does not know the leaf.
struct a_cpuid {
    explicit a_cpuid(unsigned leaf) { __get_cpuid_count(leaf, 0, &eax, &ebx, &ecx, &edx); }
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
};

inline a_bool ut_cpu_has_sse2() {
    return (a_cpuid(1).edx & bit_SSE2) != 0;
}

/// The byte permutation.
inline a_bool ut_cpu_has_ssse3() {
    return (a_cpuid(1).ecx & bit_SSSE3) != 0;
}

/// The AES round instructions.
inline a_bool ut_cpu_has_aes() {
    return (a_cpuid(1).ecx & bit_AES) != 0;
}

/// The SHA-1 and SHA-256 instructions with the byte shuffles that go with them.
inline a_bool ut_cpu_has_sha() {
    const unsigned shuffles = bit_SSSE3 | bit_SSE4_1;
    return (a_cpuid(1).ecx & shuffles) == shuffles && (a_cpuid(7).ebx & bit_SHA) != 0;
}

/// The code for this processor: what `Choose` returns, a pointer that is not null. It is asked
/// once, or by threads that come at the same time a few times. A static with an initialiser to be
/// run would draw in the part of the C++ run time that throws, whose reserve for exceptions stays
/// behind when the library is unloaded.
template <auto Choose>
auto ut_code_for_cpu() {
    static std::atomic<decltype(Choose())> chosen = nullptr;
    auto code = chosen.load(std::memory_order_relaxed);
    if (code == nullptr) {
        code = Choose();
        chosen.store(code, std::memory_order_relaxed);
    }
    return code;
}

#endif
