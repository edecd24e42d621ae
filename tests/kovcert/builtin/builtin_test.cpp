#include "kovcert/builtin/builtin.h"

#include <algorithm>

#include <gtest/gtest.h>

#include "kovcert/builtin/builtinerror.h"
#include "tests/kovcert/qxci/owner.h"
#include "tests/utils/cryptopeer.h"
#include "tests/utils/dss/dsakeys.h"
#include "utils/digest/utdigest.h"
#include "utils/dss/utdsa.h"

namespace {

constexpr a_getters builtin = {
    QXCIGetEnvIface,
    QXCIGetErrorIface,
    nullptr,
    nullptr,
    QXCIGetPasswordHasherIface,
    QXCIGetBlockHasherIface,
    QXCIGetBlockEncrypterIface,
    QXCIGetSignatureHandlerIface,
};

TEST(BuiltinEnv, knows_its_algorithms_by_name_and_number) {
    Provider provider(builtin);
    const a_qxci_env_iface& iface = provider.env_iface;
    const struct {
        const char* kind;
        bool (*has_name)(QXCIEnvironmentH env, const char* name);
        bool (*has_id)(QXCIEnvironmentH env, a_qxci_byte id);
    } kinds[] = {
        {"enc ", iface.block_enc_alg_func, iface.block_enc_alg_id_func},
        {"hash ", iface.block_hash_alg_func, iface.block_hash_alg_id_func},
        {"pw ", iface.pw_hash_alg_func, iface.pw_hash_alg_id_func},
        {"stream ", iface.stream_alg_func, iface.stream_alg_id_func},
    };
    std::string known;
    for (const auto& [kind, has_name, has_id] : kinds) {
        for (const char* name : {"aes_128", "Aes-256", "sha-256", "SHA_1", "md5", "crc",
                                 "PBKDF2-SHA256", "AES_FIPS", "AES1", "AE", "", "rsa"}) {
            if (has_name(provider.env, name)) known += std::string(kind) + name + " ";
        }
        for (int id = 0; id < 256; ++id) {
            if (has_id(provider.env, static_cast<a_qxci_byte>(id)))
                known += kind + std::to_string(id) + " ";
        }
        EXPECT_FALSE(has_name(provider.env, nullptr));
    }
    EXPECT_EQ(known, "enc aes_128 enc Aes-256 enc 2 enc 4 hash sha-256 hash SHA_1 hash md5 "
                     "hash crc hash 1 hash 3 hash 5 hash 6 pw PBKDF2-SHA256 pw 1 ");
}

TEST(BuiltinEnv, needs_memory_callbacks) {
    const a_qxci_callbacks none = {};
    a_qxci_env_iface iface;
    QXCIGetEnvIface(&iface);
    for (const a_qxci_callbacks* callbacks :
         {&none, static_cast<const a_qxci_callbacks*>(nullptr)}) {
        a_qxci_error error = {};
        EXPECT_EQ(iface.create_func(callbacks, nullptr, nullptr, nullptr, &error), nullptr);
        EXPECT_EQ(describe(&error), "7");
    }
    EXPECT_EQ(QXCIGetEnvIface(nullptr), QXCI_ERROR);
}

TEST(BuiltinError, keeps_the_first_error_or_the_last) {
    Provider provider(builtin);
    a_qxci_error* const error = &provider.error;
    _QXCIError_SetError(error, provider.env, QxciErrIOError, 5, "disk");
    _QXCIError_SetErrorIfOK(error, provider.env, QxciErrBadOption, "later");
    EXPECT_EQ(describe(error), "8 5 disk");
    _QXCIError_SetError(error, provider.env, QxciErrBadOption, "later");
    EXPECT_EQ(describe(error), "23 later");
    _QXCIError_SetError(error, provider.env, QxciErrKeyMissing, nullptr);
    EXPECT_EQ(error->parm_list, nullptr);
}

TEST(BuiltinError, clones_the_whole_list_even_an_empty_one) {
    char one[] = "one", two[] = "two";
    char* parms[] = {one, two, nullptr};
    const a_qxci_error source = {26, 2, parms}, empty = {26, 2, parms + 2};
    const char* const results[] = {"26 2", "26 2", "26 2 one", "26 2 one two"};
    for (int fail_at = 1; fail_at <= 4; ++fail_at) {  // the list, "one", "two", nothing
        Provider provider(builtin, {}, fail_at);
        _QXCIError_Clone(provider.env, &provider.error, &source);
        EXPECT_EQ(describe(&provider.error), results[fail_at - 1]);
    }
    Provider provider(builtin);
    a_qxci_error copy = {};
    _QXCIError_Clone(provider.env, &copy, &empty);
    ASSERT_NE(copy.parm_list, nullptr);
    EXPECT_EQ(copy.parm_list[0], nullptr);
    QXCIError_Destroy(provider.env, &copy);
    EXPECT_EQ(copy.code, 26u) << "the fields are left as they are";
    _QXCIError_Clear(&copy);
    EXPECT_EQ(describe(&copy), "0");
}

/// An object of the provider, and its operations: "ok" or the error as "28 iv".
template <class Iface, class Handle>
class Object {
  public:
    Object(const Iface& iface, Handle handle) : _iface(iface), _handle(handle) {}
    ~Object() { _iface.destroy_func(_handle); }
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    bool created() const { return _handle != nullptr; }
    std::string last_error() const { return describe(_iface.get_last_error_func(_handle)); }
    template <class Function, class... Args>
    auto ask(Function Iface::*entry, Args... args) const {
        return (_iface.*entry)(_handle, args...);
    }
    template <class Function, class... Args>
    std::string does(Function Iface::*entry, Args... args) const {
        return ask(entry, args...) == QXCI_OK ? "ok" : last_error();
    }

  private:
    const Iface& _iface;
    const Handle _handle;
};

using Hash = a_qxci_hash_iface;

TEST(BuiltinBlockHasher, hashes_with_every_algorithm) {
    const struct {
        const char* name;
        a_qxci_byte id;
        size_t block_size;
        const char* hash_of_abc;
    } cases[] = {
        {"sha-256", 1, 64, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {"SHA1", 3, 64, "a9993e364706816aba3e25717850c26c9cd0d89d"},
        {"MD5", 5, 64, "900150983cd24fb0d6963f7d28e17f72"},
        {"crc", 6, 1, "352441c2"},
    };
    Provider provider(builtin);
    for (const auto& known : cases) {
        for (const QXCIBlockHasherH handle :
             {provider.hash.create_func(provider.env, known.name, &provider.error),
              provider.hash.create_with_id_func(provider.env, known.id, &provider.error)}) {
            const Object hasher(provider.hash, handle);
            ASSERT_TRUE(hasher.created());
            std::string out(40, '\0');
            size_t len = out.size();
            hasher.ask(&Hash::begin_hash_func);
            hasher.ask(&Hash::add_data_func, bytes_of("dropped"), 7);
            hasher.ask(&Hash::begin_hash_func);
            hasher.ask(&Hash::add_data_func, bytes_of("a"), 1);
            hasher.ask(&Hash::add_data_func, nullptr, 0);
            hasher.ask(&Hash::add_data_func, bytes_of("bc"), 2);
            EXPECT_EQ(hasher.does(&Hash::end_hash_func, bytes_of(out), &len), "ok");
            EXPECT_EQ(to_hex(out.substr(0, len)), known.hash_of_abc);
            EXPECT_EQ(hasher.ask(&Hash::get_max_hash_size_func), len);
            EXPECT_EQ(hasher.ask(&Hash::get_block_size_func), known.block_size);
            EXPECT_EQ(hasher.ask(&Hash::get_algorithm_id_func), known.id);
        }
    }
}

TEST(BuiltinBlockHasher, reports_misuse) {
    Provider provider(builtin);
    for (const char* name : {"SHA3", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(provider.hash.create_func(provider.env, name, &provider.error), nullptr);
        EXPECT_EQ(provider.creation_error(), "22");
    }
    EXPECT_EQ(provider.hash.create_with_id_func(provider.env, 2, nullptr), nullptr);

    const Object hasher(provider.hash,
                        provider.hash.create_func(provider.env, "SHA1", &provider.error));
    std::string out(20, '\0');
    size_t len = 19;
    EXPECT_EQ(hasher.last_error(), "0");
    EXPECT_EQ(hasher.does(&Hash::add_data_func, bytes_of("abc"), 3), "7") << "not begun";
    hasher.ask(&Hash::begin_hash_func);
    EXPECT_EQ(hasher.last_error(), "0") << "an operation forgets the error before it";
    hasher.ask(&Hash::add_data_func, bytes_of("abc"), 3);
    EXPECT_EQ(hasher.does(&Hash::end_hash_func, bytes_of(out), &len), "28 out_len");
    EXPECT_EQ(len, 20u) << "the room needed";
    EXPECT_EQ(hasher.does(&Hash::end_hash_func, bytes_of(out), &len), "ok") << "nothing was lost";
    EXPECT_EQ(to_hex(out), "a9993e364706816aba3e25717850c26c9cd0d89d");
    EXPECT_EQ(hasher.does(&Hash::end_hash_func, bytes_of(out), &len), "7") << "ended";
    provider.hash.destroy_func(nullptr);
}

const std::string key_128 = from_hex("2b7e151628aed2a6abf7158809cf4f3c");
const std::string two_blocks =
    from_hex("6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51");
const char* const known_iv = "000102030405060708090A0B0C0D0E0F";
const char* const two_blocks_encrypted =
    "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2";

using Enc = a_qxci_enc_iface;

TEST(BuiltinBlockEncrypter, encrypts_in_cbc_mode_from_the_given_vector) {
    Provider provider(builtin);
    Options options;
    options.add("IV", known_iv);
    const Object encrypter(provider.enc,
                           provider.enc.create_func(provider.env, "AES-128", bytes_of(key_128), 16,
                                                    options.head(), &provider.error));
    ASSERT_TRUE(encrypter.created());
    EXPECT_TRUE(options[0].used);
    EXPECT_EQ(encrypter.ask(&Enc::get_algorithm_id_func), 2);
    EXPECT_EQ(encrypter.ask(&Enc::get_block_size_func), 16u);
    for (const size_t first : {32, 0, 16}) {  // one message in one or two calls
        std::string data = two_blocks, copy = from_hex(two_blocks_encrypted);
        const unsigned more = QXCI_ENC_CONTINUE;
        encrypter.ask(&Enc::encrypt_func, bytes_of(data), first, 0u);
        encrypter.ask(&Enc::decrypt_func, bytes_of(copy), first, 0u);
        encrypter.ask(&Enc::encrypt_func, bytes_of(data) + first, 32 - first, more);
        encrypter.ask(&Enc::decrypt_func, bytes_of(copy) + first, 32 - first, more);
        EXPECT_EQ(to_hex(data), two_blocks_encrypted) << first;
        EXPECT_EQ(copy, two_blocks) << first;
    }
    // Without a vector, and without anything to continue.
    const std::string key =
        from_hex("000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f");
    const Object from_zero(
        provider.enc, provider.enc.create_with_id_func(provider.env, QXCI_ENC_AES256, bytes_of(key),
                                                       32, nullptr, &provider.error));
    std::string data = from_hex("00112233445566778899aabbccddeeff");
    from_zero.ask(&Enc::encrypt_func, bytes_of(data), 16, unsigned{QXCI_ENC_CONTINUE});
    EXPECT_EQ(to_hex(data), "8ea2b7ca516745bfeafc49904b496089");
}

TEST(BuiltinBlockEncrypter, reports_what_it_cannot_use) {
    Provider provider(builtin);
    const a_qxci_enc_iface& iface = provider.enc;
    const std::string key(40, 'k');
    const struct {
        const char* name;
        size_t key_len;
        const char *option, *value;
        const char* error;
    } cases[] = {
        {"DES", 16, nullptr, nullptr, "21"},
        {nullptr, 16, nullptr, nullptr, "21"},
        {"AES_FIPS", 16, nullptr, nullptr, "21"},
        {"AES", 0, nullptr, nullptr, "29"},
        {"AES", 15, nullptr, nullptr, "28 key"},
        {"AES", 32, nullptr, nullptr, "28 key"},
        {"AES256", 16, nullptr, nullptr, "28 key"},
        {"AES", 16, "mode", "ctr", "23 mode"},
        {"AES", 16, "iv", "00", "28 iv"},
        {"AES", 16, "iv", "0g0102030405060708090a0b0c0d0e0f", "28 iv"},
        {"AES", 16, "iv", "000102030405060708090a0b0c0d0e0f00", "28 iv"},
        {"AES", 16, "iv", nullptr, "28 iv"},
        {"AES", 16, nullptr, "", "23 "},
    };
    for (const auto& wrong : cases) {
        Options options;
        if (wrong.option != nullptr || wrong.value != nullptr)
            options.add(wrong.option, wrong.value);
        EXPECT_EQ(iface.create_func(provider.env, wrong.name, bytes_of(key), wrong.key_len,
                                    options.head(), &provider.error),
                  nullptr);
        EXPECT_EQ(provider.creation_error(), wrong.error);
    }
    EXPECT_EQ(iface.create_func(provider.env, "AES", nullptr, 16, nullptr, nullptr), nullptr);

    const Object encrypter(
        iface, iface.create_func(provider.env, "AES", bytes_of(key), 16, nullptr, &provider.error));
    std::string data(33, 'd');
    for (const auto entry : {&Enc::encrypt_func, &Enc::decrypt_func}) {
        for (const size_t len : {1, 15, 17, 33}) {
            EXPECT_EQ(encrypter.does(entry, bytes_of(data), len, 0u), "28 len");
        }
        EXPECT_EQ(encrypter.does(entry, bytes_of(data), 16, 2u), "23 flags");
        EXPECT_EQ(encrypter.does(entry, nullptr, 16, 0u), "28 data");
        EXPECT_EQ(encrypter.does(entry, nullptr, 0, 0u), "ok");
    }
    EXPECT_EQ(data, std::string(33, 'd'));
}

/// Hashes with what is in `out`; the text, or the error.
std::string hash_password(Provider& provider, const std::string& password, std::string out,
                          size_t room) {
    const Object hasher(provider.pw_hash,
                        provider.pw_hash.create_func(provider.env, &provider.error));
    out.resize(room);
    size_t len = room;
    const std::string result = hasher.does(&a_qxci_pw_hash_iface::hash_func, bytes_of(password),
                                           password.size(), bytes_of(out), &len);
    return result == "ok" ? out.substr(0, len) : result;
}

const std::string stored_salt = "000102030405060708090a0b0c0d0e0f";

TEST(BuiltinPasswordHasher, salts_each_hash_and_checks_passwords) {
    Provider provider(builtin);
    const std::string first = hash_password(provider, "secret", "", 200);
    const std::string second = hash_password(provider, "secret", "", 200);
    EXPECT_EQ(first.size(), 15u + 6 + 1 + 32 + 1 + 64 + 1);
    EXPECT_EQ(first.substr(0, 22), "$pbkdf2-sha256$600000$");
    EXPECT_EQ(first.back(), '\0');
    EXPECT_NE(first.substr(22, 32), second.substr(22, 32)) << "the salts";
    EXPECT_EQ(hash_password(provider, "secret", first, first.size()), first);
    EXPECT_NE(hash_password(provider, "Secret", first, first.size()), first);
}

TEST(BuiltinPasswordHasher, derives_what_openssl_derives) {
    Provider provider(builtin);
    for (const char* iterations : {"1", "999", "10000"}) {
        const std::string head =
            std::string("$pbkdf2-sha256$") + iterations + "$" + stored_salt + "$";
        std::string answer = openssl("kdf -keylen 32 -binary -kdfopt digest:SHA256 -kdfopt "
                                     "pass:opensesame -kdfopt hexsalt:" +
                                     stored_salt + " -kdfopt iter:" + iterations + " PBKDF2");
        const std::string hash =
            hash_password(provider, "opensesame", head + std::string(64, '0'), 200);
        EXPECT_EQ(hash, head + to_hex(answer) + '\0');
    }
}

TEST(BuiltinPasswordHasher, refuses_other_texts_and_too_little_room) {
    Provider provider(builtin);
    const std::string salt = stored_salt + "$", hash(64, '0'), prefix = "$pbkdf2-sha256$";
    const std::string wrong_texts[] = {
        "x",
        prefix,
        "$pbkdf2-sha512$1$" + salt + hash,
        prefix + "0$" + salt + hash,
        prefix + "10000001$" + salt + hash,
        prefix + "4294967297$" + salt + hash,
        prefix + "000000001$" + salt + hash,
        prefix + "-1$" + salt + hash,
        prefix + "1" + salt + hash,
        prefix + "1$" + salt + hash + "0",
        prefix + "1$" + salt + hash.substr(1),
        prefix + "1$" + salt.substr(1) + "$" + hash,
        prefix + "1$" + salt.substr(2) + "g$" + hash,
    };
    for (const std::string& wrong : wrong_texts) {
        EXPECT_EQ(hash_password(provider, "p", wrong, 200), "28 out") << wrong;
    }
    const std::string right = prefix + "1$" + salt + hash;
    const size_t needed = right.size() + 1;
    EXPECT_EQ(hash_password(provider, "p", right, needed).size(), needed);
    EXPECT_EQ(hash_password(provider, "p", right, needed - 1), "28 out_len");
    for (size_t room = 1; room < right.size(); room += 5) {
        EXPECT_EQ(hash_password(provider, "p", right, room), "28 out") << "cut at " << room;
    }
    EXPECT_EQ(hash_password(provider, "p", "", 0), "28 out_len");
    EXPECT_EQ(hash_password(provider, "p", "", 119), "28 out_len");
    EXPECT_EQ(provider.pw_hash.create_with_id_func(provider.env, 2, &provider.error), nullptr);
    EXPECT_EQ(provider.creation_error(), "22");
}

Options& add_domain(Options& options, const a_dsa_key& key) {
    return options.add("dsa_p", key.p).add("dsa_q", key.q).add("dsa_g", key.g);
}

/// A handler, and its operations on std::string; the error for a failed one.
class Handler : public Object<a_qxci_sig_iface, QXCISignatureHandlerH> {
    using Sig = a_qxci_sig_iface;

  public:
    Handler(Provider& provider, Options& options)
        : Object(provider.sig,
                 provider.sig.create_func(provider.env, options.head(), &provider.error)) {}

    std::string sign(const char* a, const char* b, const char* c, size_t room = 200) const {
        std::string out(room, '\0');
        const std::string result = does(&Sig::create_dbsig_func, a, b, c, out.data(), &room);
        return result == "ok" ? out.substr(0, room - 1) : result;
    }
    std::string sign(const char* a, const char* b, size_t room = 200) const {
        std::string out(room, '\0');
        const std::string result = does(&Sig::create_connsig_func, a, b, out.data(), &room);
        return result == "ok" ? out.substr(0, room - 1) : result;
    }
    bool verify(const char* a, const char* b, const char* c, const std::string& sig) const {
        bool ok = true;
        EXPECT_EQ(does(&Sig::verify_dbsig_func, a, b, c, sig.c_str(), &ok), "ok");
        return ok;
    }
    bool verify(const char* a, const char* b, const std::string& sig) const {
        bool ok = true;
        EXPECT_EQ(does(&Sig::verify_connsig_func, a, b, sig.c_str(), &ok), "ok");
        return ok;
    }
    std::string verify_null(const char* a, const char* sig, bool* ok) const {
        return does(&Sig::verify_connsig_func, a, "b", sig, ok);
    }
};

TEST(BuiltinSignatureHandler, signs_the_kind_and_every_text_with_its_length) {
    Provider provider(builtin);
    Options options;
    add_domain(options, dsa_key_1024).add("dsa_x", dsa_key_1024.x);
    const Handler handler(provider, options);
    ASSERT_TRUE(handler.created());
    const std::string signature = handler.sign("company", "", "database");
    EXPECT_EQ(signature.size(), 80u);
    EXPECT_EQ(handler.sign("company", "", "database"), signature) << "deterministic";

    const std::string zeros(7, '\0');
    const std::string message = zeros + '\x17' + "QXCI database signature" + zeros + '\x07' +
                                "company" + zeros + '\0' + zeros + '\x08' + "database";
    UTSHA1 digest;
    digest.add(message.data(), message.size());
    a_byte hash[UTSHA1::digest_size];
    digest.end(hash);
    const auto number = [](const char* hex) {
        UTBigInt value;
        value.set_bytes(bytes_of(from_hex(hex)), std::strlen(hex) / 2);
        return value;
    };
    UTDSA dsa;
    ASSERT_TRUE(
        dsa.set_domain(number(dsa_key_1024.p), number(dsa_key_1024.q), number(dsa_key_1024.g)));
    ASSERT_TRUE(dsa.set_public_key(number(dsa_key_1024.y)));
    EXPECT_TRUE(dsa.verify(hash, bytes_of(from_hex(signature))));
}

TEST(BuiltinSignatureHandler, verifies_what_was_signed_and_nothing_else) {
    Provider provider(builtin);
    Options signing, verifying;
    add_domain(signing, dsa_key_1024).add("dsa_y", dsa_key_1024.y).add("DSA_X", dsa_key_1024.x);
    const std::string odd_y = std::string("000") + dsa_key_1024.y;
    add_domain(verifying, dsa_key_1024).add("dsa_y", odd_y.c_str());
    const Handler signer(provider, signing), verifier(provider, verifying);
    ASSERT_TRUE(signer.created() && verifier.created());

    const std::string database = signer.sign("ab", "c", ""), connection = signer.sign("ab", "c");
    EXPECT_TRUE(verifier.verify("ab", "c", "", database));
    EXPECT_TRUE(signer.verify("ab", "c", connection));
    EXPECT_FALSE(verifier.verify("a", "bc", "", database)) << "the same letters";
    EXPECT_FALSE(verifier.verify("ab", "", "c", database));
    EXPECT_FALSE(verifier.verify("ab", "c", database)) << "the other kind";
    EXPECT_FALSE(verifier.verify("ab", "c", "", connection));
    EXPECT_FALSE(verifier.verify("ab", "c", "")) << "not even well formed";
    EXPECT_FALSE(verifier.verify("ab", "c", connection + "0"));
    EXPECT_FALSE(verifier.verify("ab", "c", "g" + connection.substr(1)));

    EXPECT_EQ(verifier.sign("ab", "c"), "29");
    EXPECT_EQ(signer.sign("ab", "c", nullptr), "28 c");
    EXPECT_EQ(signer.sign(nullptr, "c"), "28 a");
    EXPECT_EQ(signer.sign("ab", "c", 81), connection);
    EXPECT_EQ(signer.sign("ab", "c", 80), "28 out_len");
    bool ok = true;
    EXPECT_EQ(verifier.verify_null(nullptr, "", &ok), "28 a");
    EXPECT_FALSE(ok);
    EXPECT_EQ(verifier.verify_null("a", nullptr, &ok), "28 sig");
    EXPECT_EQ(verifier.verify_null("a", "", nullptr), "28 ok");
}

TEST(BuiltinSignatureHandler, checks_its_key) {
    const a_dsa_key& key = dsa_key_1024;
    const std::string too_long(600, '1');
    const char* const names[] = {"dsa_p", "dsa_q", "dsa_g", "dsa_x", "dsa_y", "rsa_x"};
    const struct {
        const char* values[6];  // by name; null: not among the options
        const char* error;
    } cases[] = {
        {{}, "29"},
        {{key.p, key.q, key.g}, "29"},
        {{key.p, nullptr, key.g, key.x}, "29"},
        {{key.p, key.q, key.g, ""}, "28 dsa_x"},
        {{key.p, key.q, "12x", key.x}, "28 dsa_g"},
        {{too_long.c_str(), key.q, key.g, key.x}, "28 dsa_p"},
        {{key.p, dsa_key_2048.q, key.g, key.x}, "28 dsa_p"},
        {{key.p, key.q, "1", key.x}, "28 dsa_p"},
        {{key.p, key.q, key.g, "0"}, "28 dsa_x"},
        {{key.p, key.q, key.g, "5", key.y}, "28 dsa_x"},
        {{key.p, key.q, key.g, nullptr, "2"}, "28 dsa_y"},
        {{key.p, key.q, key.g, key.x, nullptr, key.x}, "23 rsa_x"},
    };
    Provider provider(builtin);
    for (const auto& wrong : cases) {
        Options options;
        for (size_t i = 0; i < std::size(names); ++i) {
            if (wrong.values[i] != nullptr) options.add(names[i], wrong.values[i]);
        }
        EXPECT_FALSE(Handler(provider, options).created());
        EXPECT_EQ(provider.creation_error(), wrong.error);
    }
}

TEST(BuiltinProvider, wipes_secrets_before_it_frees_them) {
    Provider provider(builtin);
    provider.owner.secret = "Sixteen byte key";
    const std::string key = provider.owner.secret, message = "message: " + key;
    const std::string iv = to_hex(key);
    Options options;
    options.add("iv", iv.c_str());
    {
        const Object encrypter(provider.enc,
                               provider.enc.create_func(provider.env, "AES", bytes_of(key), 16,
                                                        options.head(), &provider.error));
        const Object hasher(provider.hash,
                            provider.hash.create_func(provider.env, "MD5", &provider.error));
        hasher.ask(&Hash::begin_hash_func);
        hasher.ask(&Hash::add_data_func, bytes_of(message), message.size());
    }
    EXPECT_FALSE(provider.owner.saw_secret);

    std::string& private_key = provider.owner.secret = from_hex(dsa_key_1024.x);
    std::reverse(private_key.begin(), private_key.end());  // as this processor keeps numbers
    Options signing;
    add_domain(signing, dsa_key_1024).add("dsa_x", dsa_key_1024.x);
    EXPECT_EQ(Handler(provider, signing).sign("a", "b").size(), 80U);
    EXPECT_FALSE(provider.owner.saw_secret);
}

}  // namespace
