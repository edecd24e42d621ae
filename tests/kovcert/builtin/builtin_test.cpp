#include "kovcert/builtin/builtin.h"

#include <algorithm>

#include <gtest/gtest.h>

#include "kovcert/builtin/builtinerror.h"
#include "tests/kovcert/qxci/owner.h"
#include "tests/utils/cryptopeer.h"
#include "tests/utils/dss/dsakeys.h"

namespace {

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

class Builtin : public Provider {
  public:
    Builtin()
        : Provider({QXCIGetEnvIface, QXCIGetErrorIface, nullptr, nullptr,
                    QXCIGetPasswordHasherIface, QXCIGetBlockHasherIface, QXCIGetBlockEncrypterIface,
                    QXCIGetSignatureHandlerIface}) {}

    auto hasher(const char* name) { return Object(hash, hash.create_func(env, name, &error)); }
    auto encrypter(const char* name, const std::string& key,
                   a_qxci_user_option* options = nullptr) {
        return Object(enc, enc.create_func(env, name, bytes_of(key), key.size(), options, &error));
    }
    auto password_hasher() { return Object(pw_hash, pw_hash.create_func(env, &error)); }
};

using Hash = a_qxci_hash_iface;
using Enc = a_qxci_enc_iface;
using Sig = a_qxci_sig_iface;

TEST(BuiltinEnv, knows_its_algorithms_by_name_and_number) {
    Builtin p;
    const std::pair<bool (*)(QXCIEnvironmentH, const char*), const char*> names[] = {
        {p.env_iface.block_enc_alg_func, "aes_128 Aes-256 "},
        {p.env_iface.block_hash_alg_func, "sha-256 SHA_1 md5 crc "},
        {p.env_iface.pw_hash_alg_func, "PBKDF2-SHA256 "},
        {p.env_iface.stream_alg_func, ""},
    };
    for (const auto& [has_name, wanted] : names) {
        std::string known;
        for (const char* name : {"aes_128", "Aes-256", "sha-256", "SHA_1", "md5", "crc",
                                 "PBKDF2-SHA256", "AES_FIPS", "AES1", "AE", "", "rsa"})
            if (has_name(p.env, name)) known += std::string(name) + " ";
        EXPECT_EQ(wanted, known);
        EXPECT_FALSE(has_name(p.env, nullptr));
    }
    std::string hashes;
    for (a_qxci_byte id = 0; id < 99; ++id)
        if (p.env_iface.block_hash_alg_id_func(p.env, id)) hashes += std::to_string(id) + " ";
    EXPECT_EQ("1 3 5 6 ", hashes);
}

TEST(BuiltinEnv, needs_memory_callbacks) {
    const a_qxci_callbacks none = {};
    a_qxci_env_iface iface;
    QXCIGetEnvIface(&iface);
    a_qxci_error error = {};
    EXPECT_EQ(nullptr, iface.create_func(&none, nullptr, nullptr, nullptr, &error));
    EXPECT_EQ("7", describe(&error));
}

TEST(BuiltinError, keeps_the_first_error_or_the_last_and_clones_even_an_empty_list) {
    Builtin p;
    a_qxci_error* const error = &p.error;
    _QXCIError_SetError(error, p.env, QxciErrIOError, 5, "disk");
    _QXCIError_SetErrorIfOK(error, p.env, QxciErrBadOption, "later");
    EXPECT_EQ("8 5 disk", describe(error));
    char* no_parms[] = {nullptr};
    const a_qxci_error empty = {26, 2, no_parms};
    _QXCIError_Clone(p.env, error, &empty);
    ASSERT_NE(nullptr, error->parm_list);
    EXPECT_EQ("26 2", describe(error));
}

TEST(BuiltinBlockHasher, hashes_with_every_algorithm) {
    const struct {
        const char* name;
        a_qxci_byte id;
        size_t block_size, hash_size;
        const char* beginning;  // of the hash of "abc"
    } rows[] = {
        {"sha-256", 1, 64, 32, "ba7816bf"},
        {"SHA1", 3, 64, 20, "a9993e36"},
        {"MD5", 5, 64, 16, "90015098"},
        {"crc", 6, 1, 4, "352441c2"},
    };
    Builtin p;
    for (const auto& row : rows) {
        for (const QXCIBlockHasherH handle :
             {p.hash.create_func(p.env, row.name, &p.error),
              p.hash.create_with_id_func(p.env, row.id, &p.error)}) {
            const Object hasher(p.hash, handle);
            std::string out(40, '\0');
            size_t len = row.hash_size - 1;
            EXPECT_EQ("7", hasher.does(&Hash::add_data_func, bytes_of("abc"), 3)) << "not begun";
            hasher.ask(&Hash::begin_hash_func);
            hasher.ask(&Hash::add_data_func, bytes_of("ab"), 2);
            hasher.ask(&Hash::add_data_func, bytes_of("c"), 1);
            EXPECT_EQ("28 out_len", hasher.does(&Hash::end_hash_func, bytes_of(out), &len));
            EXPECT_EQ(row.hash_size, len);
            EXPECT_EQ("ok", hasher.does(&Hash::end_hash_func, bytes_of(out), &len));
            EXPECT_EQ(row.beginning, to_hex(out.substr(0, 4)));
            EXPECT_EQ(row.block_size, hasher.ask(&Hash::get_block_size_func));
            EXPECT_EQ("7", hasher.does(&Hash::end_hash_func, bytes_of(out), &len)) << "ended";
        }
    }
}

TEST(BuiltinBlockEncrypter, goes_on_with_a_message_where_the_last_call_ended) {
    Builtin p;
    Options options;
    options.add("IV", "000102030405060708090A0B0C0D0E0F");
    const auto encrypter =
        p.encrypter("AES-128", from_hex("2b7e151628aed2a6abf7158809cf4f3c"), options.head());
    ASSERT_TRUE(encrypter.created() && options[0].used);
    const std::string plain =
        from_hex("6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51");
    std::string data = plain;
    encrypter.ask(&Enc::encrypt_func, bytes_of(data), 16, 0U);
    encrypter.ask(&Enc::encrypt_func, bytes_of(data) + 16, 16, QXCI_ENC_CONTINUE);
    EXPECT_EQ("7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2", to_hex(data));
    encrypter.ask(&Enc::decrypt_func, bytes_of(data), 16, 0U);
    encrypter.ask(&Enc::decrypt_func, bytes_of(data) + 16, 16, QXCI_ENC_CONTINUE);
    EXPECT_EQ(plain, data);
}

TEST(BuiltinBlockEncrypter, reports_what_it_cannot_use) {
    const struct {
        const char* name;
        size_t key_len;
        const char* error;
        const char *option = nullptr, *value = nullptr;
    } rows[] = {
        {"DES", 16, "21"},
        {"AES", 0, "29"},
        {"AES", 15, "28 key"},
        {"AES", 32, "28 key"},
        {"AES", 16, "23 mode", "mode", "ctr"},
        {"AES", 16, "28 iv", "iv", "000102030405060708090a0b0c0d0e0f00"},
    };
    Builtin p;
    for (const auto& row : rows) {
        Options options;
        if (row.option != nullptr) options.add(row.option, row.value);
        EXPECT_FALSE(
            p.encrypter(row.name, std::string(row.key_len, 'k'), options.head()).created());
        EXPECT_EQ(row.error, p.creation_error());
    }

    const auto encrypter = p.encrypter("AES", std::string(16, 'k'));
    std::string data(33, 'd');
    EXPECT_EQ("28 len", encrypter.does(&Enc::encrypt_func, bytes_of(data), 33, 0U));
    EXPECT_EQ("28 data", encrypter.does(&Enc::decrypt_func, nullptr, 16, 0U));
    EXPECT_EQ(std::string(33, 'd'), data);
}

/// Hashes with what is in `out`; the text, or the error.
std::string hash_password(Builtin& p, const std::string& password, std::string out, size_t room) {
    out.resize(room);
    const std::string result =
        p.password_hasher().does(&a_qxci_pw_hash_iface::hash_func, bytes_of(password),
                                 password.size(), bytes_of(out), &room);
    return result == "ok" ? out.substr(0, room) : result;
}

const std::string stored_salt = "000102030405060708090a0b0c0d0e0f";

TEST(BuiltinPasswordHasher, salts_each_hash_and_checks_passwords) {
    Builtin p;
    const std::string first = hash_password(p, "secret", "", 200);
    const std::string second = hash_password(p, "secret", "", 200);
    EXPECT_EQ(15U + 6 + 1 + 32 + 1 + 64 + 1, first.size());
    EXPECT_EQ("$pbkdf2-sha256$600000$", first.substr(0, 22));
    EXPECT_EQ('\0', first.back());
    EXPECT_NE(first.substr(22, 32), second.substr(22, 32)) << "the salts";
    EXPECT_EQ(first, hash_password(p, "secret", first, first.size()));
    EXPECT_NE(first, hash_password(p, "Secret", first, first.size()));
}

TEST(BuiltinPasswordHasher, refuses_other_texts_and_too_little_room) {
    Builtin p;
    const std::string salt = stored_salt + "$", hash(64, '0'), prefix = "$pbkdf2-sha256$";
    const std::string wrong_texts[] = {
        prefix + "0$" + salt + hash,
        prefix + "10000001$" + salt + hash,
        prefix + "1$" + salt + hash + "0",
        prefix + "1$" + salt.substr(2) + "g$" + hash,
    };
    for (const std::string& wrong : wrong_texts) {
        EXPECT_EQ("28 out", hash_password(p, "p", wrong, 200)) << wrong;
    }
    const std::string right = prefix + "1$" + salt + hash;
    const size_t needed = right.size() + 1;
    EXPECT_EQ(needed, hash_password(p, "p", right, needed).size());
    EXPECT_EQ("28 out_len", hash_password(p, "p", right, needed - 1));
    for (size_t room = 1; room < right.size(); room += 5)
        EXPECT_EQ("28 out", hash_password(p, "p", right, room)) << "cut at " << room;
}

/// A handler with the domain of the short key and what `settings` add.
class Handler : public Object<Sig, QXCISignatureHandlerH> {
  public:
    Handler(Builtin& p, a_setting_list settings)
        : Object(p.sig, p.sig.create_func(p.env, Options(with_domain(settings)).head(), &p.error)) {
    }

    /// The signature, or the error.
    template <class Entry, class... Texts>
    std::string sign(Entry entry, Texts... texts) const {
        size_t room = 200;
        std::string out(room, '\0');
        const std::string result = does(entry, texts..., out.data(), &room);
        return result == "ok" ? out.substr(0, room - 1) : result;
    }
    /// "yes" or "no", or the error. The last text is the signature.
    template <class Entry, class... Texts>
    std::string verify(Entry entry, Texts... texts) const {
        bool ok = true;
        const std::string result = does(entry, texts..., &ok);
        return result != "ok" ? result + (ok ? " but ok" : "") : ok ? "yes" : "no";
    }

  private:
    static a_setting_list& with_domain(a_setting_list& settings) {
        const a_dsa_key& key = dsa_key_1024;
        settings.insert(settings.end(), {{"dsa_p", key.p}, {"dsa_q", key.q}, {"dsa_g", key.g}});
        return settings;
    }
};

constexpr auto sign_db = &Sig::create_dbsig_func;
constexpr auto sign_conn = &Sig::create_connsig_func;
constexpr auto verify_db = &Sig::verify_dbsig_func;
constexpr auto verify_conn = &Sig::verify_connsig_func;
constexpr const char* none = nullptr;

TEST(BuiltinSignatureHandler, verifies_what_was_signed_and_nothing_else) {
    Builtin p;
    const Handler signer(p, {{"dsa_y", dsa_key_1024.y}, {"DSA_X", dsa_key_1024.x}});
    const Handler verifier(p, {{"dsa_y", dsa_key_1024.y}});
    // DSA with the nonce of RFC 6979 over 00000000 00000017 "QXCI database signature"
    // 00000000 00000007 "company" 00000000 00000000 00000000 00000008 "database".
    EXPECT_EQ("034a43edcb45a42fea113a7a3ee7e8c776204fac92e2806f1e018a0e561538ad9d0726d75ac9e293",
              signer.sign(sign_db, "company", "", "database"));
    const std::string signed_db = signer.sign(sign_db, "ab", "c", "");
    const std::string signed_conn = signer.sign(sign_conn, "ab", "c");
    const char *const db = signed_db.c_str(), *const conn = signed_conn.c_str();
    EXPECT_EQ("yes", verifier.verify(verify_db, "ab", "c", "", db));
    EXPECT_EQ("yes", signer.verify(verify_conn, "ab", "c", conn));
    EXPECT_EQ("no", verifier.verify(verify_db, "a", "bc", "", db)) << "the same letters";
    EXPECT_EQ("no", verifier.verify(verify_conn, "ab", "c", db)) << "the other kind";
    EXPECT_EQ("29", verifier.sign(sign_conn, "ab", "c"));
    EXPECT_EQ("28 c", signer.sign(sign_db, "ab", "c", none));
}

TEST(BuiltinSignatureHandler, checks_its_key) {
    const char *const x = dsa_key_1024.x, *const y = dsa_key_1024.y;
    const struct {
        a_setting_list settings;
        const char* error;
    } rows[] = {
        {{}, "29"},
        {{{"dsa_x", std::string(600, '1')}}, "28 dsa_x"},
        {{{"dsa_x", "5"}, {"dsa_y", y}}, "28 dsa_x"},
        {{{"dsa_y", "2"}}, "28 dsa_y"},
        {{{"dsa_x", x}, {"rsa_x", x}}, "23 rsa_x"},
    };
    Builtin p;
    for (const auto& [settings, error] : rows) {
        EXPECT_FALSE(Handler(p, settings).created());
        EXPECT_EQ(error, p.creation_error());
    }
}

TEST(BuiltinProvider, wipes_secrets_before_it_frees_them) {
    Builtin p;
    p.owner.secret = "Sixteen byte key";
    const std::string key = p.owner.secret, message = "message: " + key, iv = to_hex(key);
    {
        const auto encrypter = p.encrypter("AES", key, Options().add("iv", iv.c_str()).head());
        const auto hasher = p.hasher("MD5");
        hasher.ask(&Hash::begin_hash_func);
        hasher.ask(&Hash::add_data_func, bytes_of(message), message.size());
    }
    EXPECT_FALSE(p.owner.saw_secret);

    std::string& private_key = p.owner.secret = from_hex(dsa_key_1024.x);
    std::reverse(private_key.begin(), private_key.end());  // as this processor keeps numbers
    EXPECT_EQ(80U, Handler(p, {{"dsa_x", dsa_key_1024.x}}).sign(sign_conn, "a", "b").size());
    EXPECT_FALSE(p.owner.saw_secret);
}

}  // namespace
