// Compiled with SSE2 on: a plane is one vector register instead of four general ones.
#include "utils/aes/aessliced.inc"

const a_aes_code ut_aes_sse2 = sliced_code;
