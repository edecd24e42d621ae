#include "tests/kovcert/qxci/trial.h"

namespace {

/// A peer that says nothing and takes everything.
constexpr a_qxci_conn_callbacks silent_peer = {
    [](void*, unsigned char*, unsigned, unsigned*) {
        return a_qxci_io_result{QXCI_IO_WOULD_BLOCK};
    },
    [](void*, const unsigned char*, unsigned) { return a_qxci_io_result{QXCI_IO_OK}; }, nullptr,
    nullptr, nullptr};

std::string environment(Trial& t, const a_wanted&) {
    return t.env._loadInterface(OTHER_IFACE, &t.err) ? "made 1" : describe(t.err);
}

std::string connection(Trial& t, const a_wanted& wanted) {
    const std::unique_ptr<DBQXCIStream> stream(
        t.env.CreateStreamWithID(nullptr, nullptr, QXCI_STREAM_RSA_TLS, &t.err));
    if (stream == nullptr) return describe(t.err);
    if (stream->Init(QXCI_CLIENT, Options().add("stub_script", "conn ok").head()) != QXCI_OK) {
        return describe(*stream->GetLastError());
    }
    Options options(wanted.settings);
    const std::unique_ptr<DBQXCIStreamConn> made(
        stream->CreateConn(&silent_peer, options.head(), nullptr, &t.err));
    return made != nullptr ? "made 1" : describe(t.err);
}

const struct {
    bool from_stub;
    unsigned allocations;  // at least, the environments' included
    a_creation make;
    a_wanted wanted;
    const char* result = "made 1";
} rows[] = {
    {true, 2, environment, {}},
    {true, 3, stream, {"rsa"}},
    {true,
     6,
     connection,
     {.settings = {{"stub_script", "read* block"}, {"certificate_name", "n"}}}},
    {false, 2, encrypter, {.id = 4, .key_len = 32}},
    {false, 2, hasher, {"SHA1"}},
    {false, 2, password, {}},
    {true, 3, hasher, {"SHA1"}},
    {false, 4, encrypter, {.name = "AES", .settings = {{"no_option", ""}}}, "23 no_option"},
    {true, 5, encrypter, {.name = "AES", .settings = {{"no_option", ""}}}, "23 no_option"},
};

TEST(Allocation, that_fails_ends_a_creation_and_nothing_else) {
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        int allocations = -1;
        for (bool ran_out = true; ran_out;) {
            Trial t({.stub = row.from_stub, .fail_at = ++allocations});
            const std::string result =
                t.result == QXCI_OK ? row.make(t, row.wanted) : describe(t.err);
            ran_out = t.owner.ran_out();
            // An error may get through without its parameter.
            const bool expected = ran_out ? result == "1" || result == "23" : result == row.result;
            EXPECT_TRUE(expected) << result << " without allocation " << allocations;
        }
        EXPECT_GE(allocations, row.allocations);
    }
}

TEST(Allocation, of_a_wrapper_that_fails_gives_the_object_back) {
    constexpr a_utmem_source no_memory = {[](size_t) -> void* { return nullptr; }, std::realloc,
                                          std::free, [] { return false; }};
    const std::pair<a_creation, a_wanted> kinds[] = {
        {hasher, {"MD5"}}, {encrypter, {"AES"}}, {password, {}}, {stream, {"rsa"}}};
    for (const auto& [make, wanted] : kinds) {
        Trial t({.stub = true});
        EXPECT_EQ("made 1", make(t, wanted)) << "the provider is loaded";
        const int before = t.owner.live();
        utmem_set_source(&no_memory);
        EXPECT_EQ("1", make(t, wanted));
        utmem_set_source(nullptr);
        EXPECT_EQ(before, t.owner.live());
    }
}

}  // namespace
