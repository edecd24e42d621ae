#include "utils/aes/aessliced.inc"

const a_aes_code ut_aes_plain = sliced_code;
