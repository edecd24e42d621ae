#include <atomic>
#include <cstring>

#include "providers/stub/stubalgorithms.h"
#include "providers/stub/stubmix.h"
#include "providers/stub/stubobject.h"

namespace {

/// "$stub$", a salt of 16 hex digits, "$", as many of the hash, and a zero byte.
constexpr char prefix[] = "$stub$";
constexpr size_t prefix_size = sizeof prefix - 1;
constexpr size_t digits = StubMix::text_size - 1;
constexpr size_t hash_at = prefix_size + digits + 1;
constexpr size_t text_size = hash_at + digits + 1;

/// No two salts of a process are alike, which is all that can be said for them.
void draw_salt(char* salt) {
    static std::atomic<unsigned> count = 0;
    const unsigned number = count++;
    StubMix mix;
    mix.add(&number, sizeof number);
    mix.end_as_text(salt);
}

bool is_earlier_hash(const char* text) {
    return std::strlen(text) == text_size - 1 && std::memcmp(text, prefix, prefix_size) == 0 &&
           text[hash_at - 1] == '$';
}

class StubPasswordHasher : public StubObject {
  public:
    using a_handle = QXCIPasswordHasherH;
    using StubObject::StubObject;

    /// Without a number: the best there is.
    a_qxci_result init(a_qxci_byte id = QXCI_PW_HASH_PBKDF2_SHA256) {
        if (prepare(StubOperation::object) != QXCI_OK) return QXCI_ERROR;
        _algorithm = qxci::find_algorithm(stub_pw_hashers, id);
        return _algorithm != nullptr ? QXCI_OK : fail(QxciErrBadHashAlgorithm);
    }

    a_qxci_byte algorithm_id() const { return _algorithm->id; }

    a_qxci_result hash(const a_qxci_byte* in, size_t in_len, a_qxci_byte* out, size_t* out_len) {
        if (in == nullptr && in_len != 0) return fail(QxciErrOptionError, "in");
        if (check_room(out, out_len, text_size) != QXCI_OK) return QXCI_ERROR;
        char* const text = reinterpret_cast<char*>(out);
        char* const salt = text + prefix_size;
        // No text asks for a new salt; an earlier hash has its own, and with it gives itself again.
        if (*text == '\0') {
            std::memcpy(text, prefix, prefix_size);
            draw_salt(salt);
        } else if (strnlen(text, text_size) == text_size || !is_earlier_hash(text)) {
            return fail(QxciErrOptionError, "out");
        }
        text[hash_at - 1] = '$';
        StubMix mix;
        mix.add(salt, digits);
        mix.add(in, in_len);
        mix.end_as_text(text + hash_at);
        return QXCI_OK;
    }

  private:
    const a_stub_algorithm* _algorithm = nullptr;
};

constexpr a_qxci_pw_hash_iface pw_hash_iface = {
    .create_func = qxci::create<StubPasswordHasher>,
    .create_with_id_func = qxci::create<StubPasswordHasher, a_qxci_byte>,
    .get_algorithm_id_func = qxci::entry<&StubPasswordHasher::algorithm_id>,
    .get_max_hash_size_func = [](QXCIPasswordHasherH) { return text_size; },
    .hash_func = stub_work<&StubPasswordHasher::hash>,
    .get_last_error_func = qxci::last_error<StubPasswordHasher>,
    .destroy_func = qxci::destroy<StubPasswordHasher>,
};

}  // namespace

a_qxci_result QXCIGetPasswordHasherIface(a_qxci_pw_hash_iface* iface) {
    return qxci::fill_table(iface, pw_hash_iface);
}
