#ifndef QUOREL_TESTS_UTILS_DSS_DSAKEYS_H
#define QUOREL_TESTS_UTILS_DSS_DSAKEYS_H

#include "tests/utils/cryptopeer.h"
#include "utils/dss/utmodulus.h"

inline UTBigInt number(const std::string& hex) {
    const std::string bytes = from_hex(hex.size() % 2 == 0 ? hex : "0" + hex);
    UTBigInt value;
    EXPECT_TRUE(value.set_bytes(bytes_of(bytes), bytes.size()));
    return value;
}

inline UTBigInt minus(UTBigInt from, unsigned subtrahend) {
    from.subtract(UTBigInt(subtrahend));
    return from;
}

/// A key in hex, of which not all need be there.
struct a_dsa_key {
    const char *p, *q, *g, *x, *y;
};

/// That of RFC 6979 appendix A.2.1.
inline constexpr a_dsa_key dsa_key_1024 = {
    "86f5ca03dcfeb225063ff830a0c769b9dd9d6153ad91d7ce27f787c43278b447e6533b86b18bed6e8a48b784a14c25"
    "2c5be0dbf60b86d6385bd2f12fb763ed8873abfd3f5ba2e0a8c0a59082eac056935e529daf7c610467899c77adedfc"
    "846c881870b7b19b2b58f9be0521a17002e3bdd6b86685ee90b3d9a1b02b782b1779",
    "996f967f6c8e388d9e28d01e205fba957a5698b1",
    "07b0f92546150b62514bb771e2a0c0ce387f03bda6c56b505209ff25fd3c133d89bbcd97e904e09114d9a7defdeadf"
    "c9078ea544d2e401aeecc40bb9fbbf78fd87995a10a1c27cb7789b594ba7efb5c4326a9fe59a070e136db77175464a"
    "dca417be5dce2f40d10a46a3a3943f26ab7fd9c0398ff8c76ee0a56826a8a88f1dbd",
    "411602cb19a6ccc34494d79d98ef1e7ed5af25f7",
    "5df5e01ded31d0297e274e1691c192fe5868fef9e19a84776454b100cf16f65392195a38b90523e2542ee61871c044"
    "0cb87c322fc4b4d2ec5e1e7ec766e1be8d4ce935437dc11c3c8fd426338933ebfe739cb3465f4d3668c5e473508253"
    "b1e682f65cbdc4fae93c2ea212390e54905a86e2223170b44eaa7da5dd9ffcfb7f3b",
};

/// Parameters in which everything is right but for p being the product of two primes.
inline constexpr a_dsa_key dsa_composite_p = {
    "c183e85633dd45fba4b13c8c7711ca14fe6f6f7f197130fd3cbb79736f65769e2f49530cfcbf4f4a0b52aa4acbdc99"
    "0723d951b1c165e76a3992728f4fd853b7c080f81ab1b1277165e2cb4be03e5feb2dc11372186f27138c3c06bd4449"
    "dbce839fe6a1e9b12abb4d4647db826bdadb06cce29da58a25fd0a2ae2d71255a9c3",
    "996f967f6c8e388d9e28d01e205fba957a5698b1",
    "0d58ed013d734e4ac6b390d5d768fd58f2c218ec76495239842173f635316cf776f36427cb5321bee88a4a99fb0825"
    "a70c0fbdc28fdeaaf055cc2a59d2718425ebb6ce56779d7e12df4e2f8b7f5962ca4255250556fefc67148aa9844c51"
    "f116d591bb8e7b70b860c99179771521803d41bc4a3c9fe45df5ba6d322ecbb5d8b7",
    nullptr, nullptr};

#endif
