/// Files and texts of certificates and keys, as the TLS provider is given them, and certificates as
/// it meets them: what cannot be used has a documented code, nothing is left behind when memory
/// runs out anywhere, and what is found is judged without fault.
///
/// An input is a byte of flags, a byte with the number of the allocation that fails, a name that
/// ends with a zero byte, and the contents. These are taken as they are, or, so that what is inside
/// a PEM text changes too, as certificates in DER that are yet to be put into one.

#include "fuzz/fuzzed.h"
#include "providers/openssl/nameconstraints.h"
#include "providers/openssl/peercheck.h"
#include "providers/openssl/tlsstream.h"
#include "providers/openssl/validity.h"

namespace {

enum a_flag { FLAG_IDENTITY = 1, FLAG_TEXT = 2, FLAG_DER = 4, FLAG_KEY = 8 };

/// The owner's memory.
struct Owner {
    static void* Alloc(void* context, size_t size) {
        Owner& owner = *static_cast<Owner*>(context);
        if (owner.countdown-- == 0) return nullptr;
        ++owner.live;
        return std::malloc(size);
    }
    static void Free(void* context, void* memory) {
        if (memory != nullptr) --static_cast<Owner*>(context)->live;
        std::free(memory);
    }

    int countdown;
    int live = 0;
};
constexpr a_qxci_callbacks callbacks = {Owner::Alloc, nullptr, Owner::Free, nullptr, nullptr,
                                        nullptr,      nullptr, nullptr,     nullptr, nullptr};

std::string Wrap(const char* label, const std::string& der) {
    const BioPtr bio(BIO_new(BIO_s_mem()));
    PEM_write_bio(bio.get(), label, "", reinterpret_cast<const unsigned char*>(der.data()),
                  static_cast<long>(der.size()));
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &data);
    return {data, static_cast<size_t>(size)};
}

/// The certificates at the start of `der`, which is what follows them afterwards.
ChainPtr TakeCertificates(std::string& der) {
    ChainPtr chain(sk_X509_new_null());
    const auto* const start = reinterpret_cast<const unsigned char*>(der.data());
    const unsigned char* at = start;
    const unsigned char* const end = start + der.size();
    while (X509* const certificate = d2i_X509(nullptr, &at, end - at)) {
        sk_X509_push(chain.get(), certificate);
    }
    der.erase(0, static_cast<size_t>(at - start));
    return chain;
}

std::string PemOf(const STACK_OF(X509) & chain, const std::string& rest, bool with_key) {
    std::string text;
    for (int i = 0; i < sk_X509_num(&chain); ++i) {
        unsigned char* der = nullptr;
        const int size = i2d_X509(sk_X509_value(&chain, i), &der);
        text += Wrap("CERTIFICATE", std::string(reinterpret_cast<char*>(der), size_t(size)));
        OPENSSL_free(der);
    }
    return text + Wrap(with_key ? "PRIVATE KEY" : "CERTIFICATE", rest);
}

bool IsDocumented(uint32_t code) {
    for (const unsigned documented :
         {QxciErrOK, QxciErrNoMemory, QxciErrBadCertFile, QxciErrNoCertificates,
          QxciErrMissingCertPassword, QxciErrSpecifiedCertExpired, QxciErrOptionError,
          QxciErrKeyMissing, QxciErrBadCert, QxciErrBadRSACert}) {
        if (code == documented) return true;
    }
    return false;
}

/// The first certificate is the peer's; the others, or only it, are trusted.
void Judge(STACK_OF(X509) & chain, X509_STORE* trust, const Settings& settings,
           const qxci::Memory& memory) {
    if (sk_X509_num(&chain) == 0) return;
    using ContextStorePtr =
        std::unique_ptr<X509_STORE_CTX, an_openssl_deleter<X509_STORE_CTX_free>>;
    const ContextStorePtr context(X509_STORE_CTX_new());
    X509* const peer = sk_X509_value(&chain, 0);
    X509_STORE_CTX_init(context.get(), trust, peer, &chain);
    X509_VERIFY_PARAM_set_flags(X509_STORE_CTX_get0_param(context.get()),
                                X509_V_FLAG_PARTIAL_CHAIN);
    qxci::ErrorRecord error(memory);
    check(check_peer(*context, settings, error) == (error.get()->code == QxciErrOK));
    // And as a chain whose signatures were right.
    X509_STORE_CTX_set0_verified_chain(context.get(), X509_chain_up_ref(&chain));
    judge_chain_dates(*context);
    judge_name(*context, settings.get(SETTING_NAME).text);
    subject_text(*peer);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    Owner owner{-1};
    const qxci::Memory memory(&callbacks, &owner);
    qxci::ErrorRecord error(memory);
    check(ProviderEnv(memory).init(nullptr, nullptr, error));  // sets OpenSSL up
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    const unsigned flags = input.byte(), failing = input.byte();
    Owner owner{failing == 0 ? -1 : static_cast<int>(failing % 32)};
    const std::string name = input.text();
    std::string contents = input.rest();

    ChainPtr chain(sk_X509_new_null());
    if ((flags & FLAG_DER) != 0) {
        chain = TakeCertificates(contents);
        contents = PemOf(*chain, contents, (flags & FLAG_KEY) != 0);
    }
    const bool identity = (flags & FLAG_IDENTITY) != 0, text = (flags & FLAG_TEXT) != 0;
    a_qxci_user_option named = {"certificate_name", name.c_str(), false, nullptr};
    const std::string path = file_with(contents);
    a_qxci_user_option given = {identity ? text ? "identity" : "identity_file"
                                : text   ? "trusted_root"
                                         : "trusted_certificate",
                                (text ? contents : path).c_str(), false, &named};
    {
        const qxci::Memory memory(&callbacks, &owner);
        qxci::ErrorRecord error(memory);
        Settings settings(memory, nullptr);
        a_credentials credentials;
        const bool loaded = settings.read(&given, SCOPE_OBJECT, error) &&
                            credentials.load(memory, settings, true, error);
        check(loaded == (error.get()->code == QxciErrOK) && IsDocumented(error.get()->code));
        check(!loaded || (identity ? credentials.identity.loaded() : credentials.trust != nullptr));
        if (loaded && !identity) Judge(*chain, credentials.trust.get(), settings, memory);
    }
    check(owner.live == 0);
    ERR_clear_error();  // whose texts would look like a leak that has to be searched for
    return 0;
}
