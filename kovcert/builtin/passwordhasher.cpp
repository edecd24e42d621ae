#include <cerrno>
#include <charconv>
#include <cstring>
#include <string_view>

#include <sys/random.h>

#include "kovcert/builtin/builtin.h"
#include "kovcert/builtin/builtinalgorithms.h"
#include "kovcert/builtin/builtinhex.h"
#include "kovcert/qxci/kit/providerkit.h"
#include "utils/digest/utpbkdf2.h"
#include "utils/utmem/utwipe.h"

namespace {

constexpr std::string_view prefix = "$pbkdf2-sha256$";
constexpr uint32 default_iterations = 600000;
constexpr uint32 max_iterations = 10000000;
constexpr size_t salt_size = 16, hash_size = 32;
constexpr size_t max_digits = 8;  // of max_iterations
constexpr size_t max_text_size =
    prefix.size() + max_digits + 1 + 2 * salt_size + 1 + 2 * hash_size + 1;

/// What a hash was made with.
struct a_setting {
    uint32 iterations = default_iterations;
    a_byte salt[salt_size] = {};
};

/// A text in the room that the caller gave; it need not end there.
std::string_view text_at(const a_byte* out, size_t room) {
    const char* const text = reinterpret_cast<const char*>(out);
    return {text, strnlen(text, room)};
}

/// Reads decimal digits, the iterations, up to a "$", and takes them off the text.
bool take_iterations(std::string_view& text, uint32& iterations) {
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), iterations);
    // An earlier hash may come from anywhere; with more it would keep a server busy for minutes.
    if (failure != std::errc() || iterations < 1 || iterations > max_iterations) return false;
    const size_t digits = static_cast<size_t>(end - text.data());
    if (digits > max_digits || digits == text.size() || *end != '$') return false;
    text.remove_prefix(digits + 1);
    return true;
}

/// Takes what a hash was made with from its text; false for a text that no hash has.
bool parse_setting(std::string_view text, a_setting& setting) {
    if (!text.starts_with(prefix)) return false;
    text.remove_prefix(prefix.size());
    if (!take_iterations(text, setting.iterations)) return false;
    constexpr size_t salt_digits = 2 * salt_size;
    if (text.size() != salt_digits + 1 + 2 * hash_size || text[salt_digits] != '$') return false;
    char salt[salt_digits + 1] = {};
    text.copy(salt, salt_digits);
    return parse_hex(salt, setting.salt, salt_size);
}

/// Stores the text with its zero byte; returns its size.
size_t format_hash(char (&text)[max_text_size], const a_setting& setting, const a_byte* hash) {
    char* end = text + prefix.copy(text, prefix.size());
    end = std::to_chars(end, end + max_digits, setting.iterations).ptr;
    *end++ = '$';
    end = format_hex(end, setting.salt, salt_size);
    *end++ = '$';
    end = format_hex(end, hash, hash_size);
    *end++ = '\0';
    return static_cast<size_t>(end - text);
}

/// Fills `bytes` from the system's random numbers; 0, or an errno value.
int draw_random(a_byte* bytes, size_t len) {
    while (len != 0) {
        const ssize_t drawn = getrandom(bytes, len, 0);
        if (drawn < 0 && errno != EINTR) return errno;
        if (drawn <= 0) continue;
        bytes += drawn;
        len -= static_cast<size_t>(drawn);
    }
    return 0;
}

class PasswordHasher : public qxci::Object {
  public:
    using a_handle = QXCIPasswordHasherH;
    using an_owner = qxci::Environment;
    using Object::Object;

    /// Without a number: the best there is.
    a_qxci_result init(a_qxci_byte id = QXCI_PW_HASH_PBKDF2_SHA256) {
        _algorithm = qxci::find_algorithm(builtin_pw_hash_algorithms, id);
        return _algorithm == nullptr ? fail(QxciErrBadHashAlgorithm) : QXCI_OK;
    }

    a_qxci_byte algorithm_id() const { return _algorithm->id; }

    a_qxci_result hash(const a_byte* in, size_t in_len, a_byte* out, size_t* out_len) {
        if (in == nullptr && in_len != 0) return fail(QxciErrOptionError, "in");
        const size_t room = out == nullptr || out_len == nullptr ? 0 : *out_len;
        a_setting setting;
        if (room != 0 && choose_setting(text_at(out, room), setting) != QXCI_OK) return QXCI_ERROR;

        // The size is known before the work: only the number of iterations varies in length.
        char text[max_text_size];
        a_wiped_bytes<hash_size> derived = {};
        const size_t size = format_hash(text, setting, derived.data);
        if (check_room(out, out_len, size) != QXCI_OK) return QXCI_ERROR;
        ut_pbkdf2_hmac_sha256(in, in_len, setting.salt, salt_size, setting.iterations, derived.data,
                              hash_size);
        format_hash(text, setting, derived.data);
        std::memcpy(out, text, size);
        ut_wipe(text, sizeof text);
        return QXCI_OK;
    }

  private:
    /// The setting of an earlier hash, or a new one when there is none.
    a_qxci_result choose_setting(std::string_view earlier, a_setting& setting) {
        if (!earlier.empty()) {
            return parse_setting(earlier, setting) ? QXCI_OK : fail(QxciErrOptionError, "out");
        }
        const int failure = draw_random(setting.salt, salt_size);
        if (failure == 0) return QXCI_OK;
        return fail(QxciErrIOError, nullptr, static_cast<uint32_t>(failure));
    }

    const a_builtin_algorithm* _algorithm = nullptr;
};

constexpr a_qxci_pw_hash_iface pw_hash_iface = {
    .create_func = qxci::create<PasswordHasher>,
    .create_with_id_func = qxci::create<PasswordHasher, a_qxci_byte>,
    .get_algorithm_id_func = qxci::entry<&PasswordHasher::algorithm_id>,
    .get_max_hash_size_func = [](QXCIPasswordHasherH) { return max_text_size; },
    .hash_func = qxci::entry<&PasswordHasher::hash>,
    .get_last_error_func = qxci::last_error<PasswordHasher>,
    .destroy_func = qxci::destroy<PasswordHasher>,
};

}  // namespace

a_qxci_result QXCIGetPasswordHasherIface(a_qxci_pw_hash_iface* iface) {
    return qxci::fill_table(iface, pw_hash_iface);
}
