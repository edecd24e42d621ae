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

/// The keys of RFC 6979 appendices A.2.1 and A.2.2, in hex; null for what is derived.
struct a_dsa_key {
    const char *p, *q, *g, *x, *y;
};

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

inline constexpr a_dsa_key dsa_key_2048 = {
    "9db6fb5951b66bb6fe1e140f1d2ce5502374161fd6538df1648218642f0b5c48c8f7a41aadfa187324b87674fa1822"
    "b00f1ecf8136943d7c55757264e5a1a44ffe012e9936e00c1d3e9310b01c7d179805d3058b2a9f4bb6f9716bfe6117"
    "c6b5b3cc4d9be341104ad4a80ad6c94e005f4b993e14f091eb51743bf33050c38de235567e1b34c3d6a5c0ceaa1a0f"
    "368213c3d19843d0b4b09dcb9fc72d39c8de41f1bf14d4bb4563ca28371621cad3324b6a2d392145bebfac74880523"
    "6f5ca2fe92b871cd8f9c36d3292b5509ca8caa77a2adfc7bfd77dda6f71125a7456fea153e433256a2261c6a06ed36"
    "93797e7995fad5aabbcfbe3eda2741e375404ae25b",
    "f2c3119374ce76c9356990b465374a17f23f9ed35089bd969f61c6dde9998c1f",
    "5c7ff6b06f8f143fe8288433493e4769c4d988ace5be25a0e24809670716c613d7b0cee6932f8faa7c44d2cb24523d"
    "a53fbe4f6ec3595892d1aa58c4328a06c46a15662e7eaa703a1decf8bbb2d05dbe2eb956c142a338661d10461c0d13"
    "5472085057f3494309ffa73c611f78b32adbb5740c361c9f35be90997db2014e2ef5aa61782f52abeb8bd6432c4dd0"
    "97bc5423b285dafb60dc364e8161f4a2a35aca3a10b1c4d203cc76a470a33afdcbdd92959859abd8b56e1725252d78"
    "eac66e71ba9ae3f1dd2487199874393cd4d832186800654760e1e34c09e4d155179f9ec0dc4473f996bdce6eed1cab"
    "ed8b6f116f7ad9cf505df0f998e34ab27514b0ffe7",
    "69c7548c21d0dfea6b9a51c9ead4e27c33d3b3f180316e5bcab92c933f0e4dbc",
    nullptr,
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

/// The same for q.
inline constexpr a_dsa_key dsa_composite_q = {
    "f2da9916df357a6dbe9eb604627a057c8fe068a169b2af8690c3bd8541923a22133a4b08f71bb394dbaba8a4d0ca32"
    "7290d053ccdb3baff19bcabd791cd3e35ad5650fb82803b9cefae1121b8df12e6e484562839d0c21ca8de27f6f7c17"
    "58329addc20b15f6afaf0084d3fe5c406de71f34dbd050a8b8c58a3c47ef763f6f99",
    "9faf96827a4c13abf585fd4bd92bcc7fb91ff333",
    "0a4a745aa603a87a9cfcdd9a15f738cc6ceb16566e8d6e34b1c685efbd171e434893d7a59b0f4e46048697042745ca"
    "3d16efe58fd524e40d9a186b3c0395321028f272320940d37dcc925937b651e738f0afc023459322516f15b7aba723"
    "9325a210a55b803240d8bfcd37633d105e4050f04b09f29495736d10c6b63934b374",
    nullptr, nullptr};

#endif
