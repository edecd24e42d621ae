#include <memory>

#include <gtest/gtest.h>

#include "kovcert/qxci/qxcicreate.h"
#include "tests/kovcert/qxci/trial.h"
#include "tests/utils/dss/dsakeys.h"

namespace {

/// A peer that says nothing and takes everything.
constexpr a_qxci_conn_callbacks silent_peer = {
    [](void*, unsigned char*, unsigned, unsigned*) {
        return a_qxci_io_result{QXCI_IO_WOULD_BLOCK};
    },
    [](void*, const unsigned char*, unsigned) { return a_qxci_io_result{QXCI_IO_OK}; }, nullptr,
    nullptr, nullptr};

/// Creates an object; false when it could not be created, and then `error` says why.
using a_creation = bool (*)(DBQXCIEnvironment& env, DBQXCIError& error);

template <class Object>
bool created(Object* object) {
    const std::unique_ptr<Object> owner(object);
    return object != nullptr;
}

const a_qxci_byte key[32] = {};

bool create_hasher(DBQXCIEnvironment& env, DBQXCIError& error) {
    return created(env.CreateBlockHasher("SHA1", &error));
}

bool create_encrypter(DBQXCIEnvironment& env, DBQXCIError& error) {
    return created(env.CreateBlockEncrypter("AES", key, 16, nullptr, &error));
}

bool create_password_hasher(DBQXCIEnvironment& env, DBQXCIError& error) {
    return created(env.CreatePasswordHasher(&error));
}

bool create_stream(DBQXCIEnvironment& env, DBQXCIError& error) {
    return created(env.CreateStream(nullptr, nullptr, "rsa", &error));
}

bool create_connection(DBQXCIEnvironment& env, DBQXCIError& error) {
    Options for_conn;
    for_conn.add("stub_script", "read* block").add("certificate_name", "localhost");
    const std::unique_ptr<DBQXCIStream> stream(
        env.CreateStreamWithID(nullptr, nullptr, QXCI_STREAM_RSA_TLS, &error));
    if (stream == nullptr) return false;
    if (stream->Init(QXCI_CLIENT, Options().add("stub_script", "conn ok").head()) != QXCI_OK) {
        error.CloneFrom(stream->GetLastError());
        return false;
    }
    return created(stream->CreateConn(&silent_peer, for_conn.head(), nullptr, &error));
}

bool create_signer(DBQXCIEnvironment& env, DBQXCIError& error) {
    const a_dsa_key& dsa = dsa_key_1024;
    Options options;
    options.add("dsa_p", dsa.p).add("dsa_q", dsa.q).add("dsa_g", dsa.g).add("dsa_y", dsa.y);
    return created(env.CreateSignatureHandler(options.head(), &error));
}

/// The environment's own go to the built-in provider.
bool create_signer_of_stub(DBQXCIEnvironment& env, DBQXCIError& error) {
    if (!env._loadInterface(OTHER_IFACE, &error)) return false;
    const c_utils_ref<DBQXCIInterface> iface(env._getInterface(OTHER_IFACE));
    return created(qxci_create<DBQXCISignatureHandler>(
        {&env, iface.get(), OTHER_IFACE}, iface->_sig_iface.create_func, &error, iface->_qxci_env,
        Options().add("stub_key", "k").head()));
}

/// Fails however much memory there is, with parameters, which may not get through.
bool fail_with_parameters(DBQXCIEnvironment& env, DBQXCIError& error) {
    EXPECT_FALSE(created(
        env.CreateBlockEncrypter("AES", key, 16, Options().add("no_option", "").head(), &error)));
    if (error.getErrorCode() != QxciErrBadOption) return false;
    const char* const parm = error.GetParm(0);
    EXPECT_TRUE(parm == nullptr || std::string(parm) == "no_option");
    error.Clear();
    return true;
}

const struct {
    const char* what;
    bool from_stub;
    unsigned allocations;  // at least, the environments' included
    a_creation create;
} cases[] = {
    {"environment", true, 2,
     [](auto& env, auto& e) { return env._loadInterface(OTHER_IFACE, &e); }},
    {"stream", true, 3, create_stream},
    {"connection", true, 6, create_connection},
    {"encrypter", false, 2, create_encrypter},
    {"hasher", false, 2, create_hasher},
    {"password hasher", false, 2, create_password_hasher},
    {"signature handler", false, 2, create_signer},
    {"encrypter of the stub", true, 3, create_encrypter},
    {"hasher of the stub", true, 3, create_hasher},
    {"password hasher of the stub", true, 3, create_password_hasher},
    {"signature handler of the stub", true, 3, create_signer_of_stub},
    {"failure", false, 4, fail_with_parameters},
    {"failure of the stub", true, 5, fail_with_parameters},
};

/// Runs a creation with an owner whose allocation number `fail_at` fails; true: it did not get
/// there.
bool has_enough(bool from_stub, a_creation create, int fail_at) {
    Trial t({.stub = from_stub, .fail_at = fail_at});
    const bool good = t.result == QXCI_OK && create(t.env, t.err);
    EXPECT_EQ(good ? "0" : "1", describe(t.err)) << "allocation " << fail_at;
    EXPECT_TRUE(good || t.owner.ran_out());
    return !t.owner.ran_out();
}

TEST(Allocation, of_a_wrapper_that_fails_gives_the_object_back) {
    constexpr a_utmem_source no_memory = {[](size_t) -> void* { return nullptr; }, std::realloc,
                                          std::free, [] { return false; }};
    for (const a_creation create :
         {create_hasher, create_encrypter, create_password_hasher, create_stream}) {
        Trial t({.stub = true});
        EXPECT_TRUE(create(t.env, t.err)) << "the provider is loaded";
        const int before = t.owner.live();
        utmem_set_source(&no_memory);
        EXPECT_FALSE(create(t.env, t.err));
        utmem_set_source(nullptr);
        EXPECT_EQ("1", describe(t.err));
        EXPECT_EQ(before, t.owner.live());
    }
}

TEST(Allocation, that_fails_ends_a_creation_and_nothing_else) {
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        unsigned allocations = 0;
        while (!has_enough(c.from_stub, c.create, static_cast<int>(allocations))) ++allocations;
        EXPECT_GE(allocations, c.allocations);
    }
}

}  // namespace
