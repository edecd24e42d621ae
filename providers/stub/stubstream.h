#ifndef QUOREL_PROVIDERS_STUB_STUBSTREAM_H
#define QUOREL_PROVIDERS_STUB_STUBSTREAM_H

/// Streams: the side that their connections are on.

#include "providers/stub/stubalgorithms.h"
#include "providers/stub/stubobject.h"

/// Accepted by streams and connections: all that the owner or a user may want of TLS.
inline constexpr const char* stub_tls_options[] = {
    "stub_script",
    "tls_type",
    "FIPS",
    "identity",
    "identity_file",
    "certificate_file",
    "identity_password",
    "certificate_password",
    "trusted_certificates",
    "trusted_root_file",
    "trusted_root",
    "trusted_root_files",
    "trusted_roots",
    "trusted_certificate",
    "certificate_company",
    "certificate_unit",
    "certificate_name",
    nullptr,
};

class StubStream : public StubObject {
  public:
    using a_handle = QXCIStreamH;
    using StubObject::StubObject;

    /// `algorithm` is a name or a number.
    template <class Key>
    a_qxci_result init(const a_qxci_stream_callbacks*, void*, Key algorithm) {
        if (prepare(StubOperation::stream) != QXCI_OK) return QXCI_ERROR;
        _algorithm = qxci::find_algorithm(stub_streams, algorithm);
        return _algorithm != nullptr ? QXCI_OK : fail(QxciErrBadEncryptionAlgorithm);
    }

    a_qxci_byte algorithm_id() const { return _algorithm->id; }
    a_qxci_side side() const { return _side; }
    bool is_started() const { return _started; }

    a_qxci_result start(a_qxci_side side, a_qxci_user_option* options) {
        if (side != QXCI_CLIENT && side != QXCI_SERVER) return fail(QxciErrOptionError, "side");
        if (take_options(options, stub_tls_options) != QXCI_OK) return QXCI_ERROR;
        if (play(StubOperation::init) != QXCI_OK) return QXCI_ERROR;
        _side = side;
        _started = true;
        return QXCI_OK;
    }

    a_qxci_result finish() {
        _started = false;
        return QXCI_OK;
    }

  private:
    const a_stub_algorithm* _algorithm = nullptr;
    a_qxci_side _side = QXCI_CLIENT;
    bool _started = false;
};

#endif
