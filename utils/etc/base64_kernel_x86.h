#ifndef QUOREL_UTILS_ETC_BASE64_KERNEL_X86_H
#define QUOREL_UTILS_ETC_BASE64_KERNEL_X86_H

/// The kernels for x86 vector units. Call one only where the processor has the unit.

#include "utils/etc/base64_kernel.h"

#if defined(__i386__) || defined(__x86_64__)
#define QUOREL_BASE64_X86

extern const a_base64_kernel base64_ssse3_kernel;
extern const a_base64_kernel base64_avx2_kernel;

#endif
#endif
