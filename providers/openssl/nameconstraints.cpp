#include "providers/openssl/nameconstraints.h"

#include <string_view>

#include <openssl/x509v3.h>

#include "kovcert/qxci/kit/names.h"
#include "providers/openssl/ipaddress.h"

namespace {

using ConstraintsPtr = std::unique_ptr<NAME_CONSTRAINTS, an_openssl_deleter<NAME_CONSTRAINTS_free>>;

/// An IP address or a DNS name, and whether it lies below the base of a subtree.
class HostName {
  public:
    explicit HostName(const char* name) : _dns(name), _address(read_ip_address(name)) {
        // A dot at the end only says that the name is complete (RFC 1034, section 3.1).
        while (_dns.ends_with('.')) _dns.remove_suffix(1);
    }

    int kind() const { return _address.size == 0 ? GEN_DNS : GEN_IPADD; }

    bool is_below(const ASN1_STRING& base) const {
        const unsigned char* const data = ASN1_STRING_get0_data(&base);
        const auto size = static_cast<size_t>(ASN1_STRING_length(&base));
        return _address.size == 0 ? is_below({reinterpret_cast<const char*>(data), size})
                                  : is_inside(data, size);
    }

  private:
    bool is_below(std::string_view base) const {
        if (base.empty()) return true;
        if (base.size() > _dns.size()) return false;
        const size_t start = _dns.size() - base.size();
        if (!qxci::same_name(_dns.substr(start), base)) return false;
        return start == 0 || base.front() == '.' || _dns[start - 1] == '.';
    }

    /// A range is an address and as many bytes of mask.
    bool is_inside(const unsigned char* range, size_t size) const {
        if (size != 2 * _address.size) return false;
        for (size_t i = 0; i < _address.size; ++i) {
            if (((_address.bytes[i] ^ range[i]) & range[_address.size + i]) != 0) return false;
        }
        return true;
    }

    std::string_view _dns;
    const an_ip_address _address;
};

/// How many of the subtrees are about names of this kind, and how many of those hold this one.
struct a_count {
    int of_kind = 0, holding = 0;

    a_count(const STACK_OF(GENERAL_SUBTREE) * subtrees, const HostName& name) {
        for (int i = 0; i < sk_GENERAL_SUBTREE_num(subtrees); ++i) {
            int kind = 0;
            const void* const base =
                GENERAL_NAME_get0_value(sk_GENERAL_SUBTREE_value(subtrees, i)->base, &kind);
            if (kind != name.kind()) continue;
            ++of_kind;
            if (name.is_below(*static_cast<const ASN1_STRING*>(base))) ++holding;
        }
    }
};

int judge(const X509& authority, const HostName& name) {
    int found = 0;
    const ConstraintsPtr constraints(static_cast<NAME_CONSTRAINTS*>(
        X509_get_ext_d2i(&authority, NID_name_constraints, &found, nullptr)));
    constexpr int none = -1;  // -2: several, which is a fault (X509_get_ext_d2i(3))
    if (found == none) return X509_V_OK;
    if (constraints == nullptr) return X509_V_ERR_UNSUPPORTED_CONSTRAINT_SYNTAX;
    const a_count permitted(constraints->permittedSubtrees, name);
    if (permitted.of_kind > 0 && permitted.holding == 0) return X509_V_ERR_PERMITTED_VIOLATION;
    const a_count excluded(constraints->excludedSubtrees, name);
    return excluded.holding > 0 ? X509_V_ERR_EXCLUDED_VIOLATION : X509_V_OK;
}

}  // namespace

bool judge_name(X509_STORE_CTX& context, const char* name) {
    // No host has such a name, so that what constrains the names of hosts is not about it.
    if (std::string_view(name).find(' ') != std::string_view::npos) return true;
    const HostName host(name);
    const STACK_OF(X509)* const chain = X509_STORE_CTX_get0_chain(&context);
    // From the issuer on: a certificate does not constrain itself.
    for (int depth = 1; depth < sk_X509_num(chain); ++depth) {
        const int result = judge(*sk_X509_value(chain, depth), host);
        if (result == X509_V_OK) continue;
        X509_STORE_CTX_set_error(&context, result);
        X509_STORE_CTX_set_error_depth(&context, 0);
        X509_STORE_CTX_set_current_cert(&context, X509_STORE_CTX_get0_cert(&context));
        return false;
    }
    return true;
}
