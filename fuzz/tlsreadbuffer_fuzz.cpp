// Raw bytes that the owner of a TLS connection feeds it: they come out in order, none lost or
// doubled, exactly as many as are asked for or none.
//
// An input is a row of steps: a byte that says what to do and a byte for how much, for a feed
// followed by the bytes.

#include "fuzz/fuzzed.h"
#include "kovcert/tlssession.h"

namespace {

constexpr a_qxci_callbacks process = {
    .alloc_cb = [](void*, size_t size) { return std::malloc(size); },
    .realloc_cb = [](void*, void* memory, size_t size) { return std::realloc(memory, size); },
    .free_cb = [](void*, void* memory) { std::free(memory); },
    .log_cb = nullptr,
    .threadid_cb = nullptr,
    .mutex_create_cb = [](void*) { return std::malloc(1); },
    .mutex_destroy_cb = [](void*, void* mutex) { std::free(mutex); },
    .mutex_get_cb = [](void*, void*) {},  // there is one thread
    .mutex_give_cb = [](void*, void*) {},
    .create_thread_cb = nullptr,
};

/// A stream of the stub provider, which takes no part in what is fed.
struct Provider {
    Provider() {
        check(env.Init(false, "fuzz", nullptr, &error) == QXCI_OK);
        stream.reset(env.CreateStreamWithID(nullptr, nullptr, QXCI_STREAM_RSA_TLS, &error));
        check(stream != nullptr && stream->Init(QXCI_CLIENT, nullptr) == QXCI_OK);
    }
    const int stub = setenv("QX_USE_QXCI_STUB", "1", 1);  // before the environment looks
    DBQXCIError error;
    DBQXCIEnvironment env{&process, nullptr};
    std::unique_ptr<DBQXCIStream> stream;
};

constexpr TlsCallbacks fed = {[](void*, const char*, size_t len) { return len; }, nullptr, nullptr,
                              nullptr};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Provider provider;
    TlsConnection conn(provider.stream.get(), &provider.env, &fed, nullptr, nullptr,
                       &provider.error, nullptr);
    std::string waiting;
    for (Input input(data, size); !input.empty();) {
        const unsigned step = input.byte();
        const unsigned count = input.byte();
        if (step % 3 == 0) {
            const std::string bytes = input.bytes(count);
            check(conn.receiveBytes(bytes.data(), bytes.size()) == QxciErrOK);
            waiting += bytes;
            continue;
        }
        const bool there = !waiting.empty() && waiting.size() >= count;
        const std::unique_ptr<char[]> bytes(new char[count]);
        if (step % 3 == 1) {
            size_t got = ~size_t{0};
            check(conn.getReceivedBytes(bytes.get(), count, &got) ==
                  (there ? QxciErrOK : QxciErrWouldBlock));
            check(got == (there ? count : ~size_t{0}));
        } else {
            unsigned got = 0;
            const a_qxci_io_result result = QXCI_ReadCallback(
                &conn, reinterpret_cast<unsigned char*>(bytes.get()), count, &got);
            check(there && count != 0 ? result == QXCI_IO_OK && got == count
                                      : result == QXCI_IO_WOULD_BLOCK);
        }
        if (there) check(waiting.compare(0, count, bytes.get(), count) == 0);
        if (there) waiting.erase(0, count);
    }
    return 0;
}
