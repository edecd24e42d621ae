#include "kovcert/qxci/dbqxciwrappers.h"

#include "kovcert/qxci/qxcicreate.h"

// ---- Block encrypter ----

a_qxci_byte DBQXCIBlockEncrypter::GetAlgorithmID() {
    return _Forward(&a_qxci_enc_iface::get_algorithm_id_func, 0);
}

a_qxci_result DBQXCIBlockEncrypter::Encrypt(a_qxci_byte* data, size_t len, unsigned flags) {
    return _Forward(&a_qxci_enc_iface::encrypt_func, QXCI_ERROR, data, len, flags);
}

a_qxci_result DBQXCIBlockEncrypter::Decrypt(a_qxci_byte* data, size_t len, unsigned flags) {
    return _Forward(&a_qxci_enc_iface::decrypt_func, QXCI_ERROR, data, len, flags);
}

size_t DBQXCIBlockEncrypter::GetBlockSize() {
    return _Forward(&a_qxci_enc_iface::get_block_size_func, 0);
}

const char* DBQXCIBlockEncrypter::GetDLLName() const {
    return _iface_index == FIPS_IFACE ? QXCI_FIPS_DLL_NAME : nullptr;
}

// ---- Block hasher ----

a_qxci_byte DBQXCIBlockHasher::GetAlgorithmID() {
    return _Forward(&a_qxci_hash_iface::get_algorithm_id_func, 0);
}

size_t DBQXCIBlockHasher::GetMaxHashSize() {
    return _Forward(&a_qxci_hash_iface::get_max_hash_size_func, 0);
}

size_t DBQXCIBlockHasher::GetBlockSize() {
    return _Forward(&a_qxci_hash_iface::get_block_size_func, 0);
}

a_qxci_result DBQXCIBlockHasher::BeginHash() {
    return _Forward(&a_qxci_hash_iface::begin_hash_func, QXCI_ERROR);
}

a_qxci_result DBQXCIBlockHasher::AddData(const a_qxci_byte* data, size_t len) {
    return _Forward(&a_qxci_hash_iface::add_data_func, QXCI_ERROR, data, len);
}

a_qxci_result DBQXCIBlockHasher::EndHash(a_qxci_byte* out, size_t* out_len) {
    return _Forward(&a_qxci_hash_iface::end_hash_func, QXCI_ERROR, out, out_len);
}

// ---- Password hasher ----

a_qxci_byte DBQXCIPasswordHasher::GetAlgorithmID() {
    return _Forward(&a_qxci_pw_hash_iface::get_algorithm_id_func, 0);
}

size_t DBQXCIPasswordHasher::GetMaxHashSize() {
    return _Forward(&a_qxci_pw_hash_iface::get_max_hash_size_func, 0);
}

a_qxci_result DBQXCIPasswordHasher::Hash(const a_qxci_byte* in, size_t in_len, a_qxci_byte* out,
                                         size_t* out_len) {
    return _Forward(&a_qxci_pw_hash_iface::hash_func, QXCI_ERROR, in, in_len, out, out_len);
}

// ---- Signature handler ----

a_qxci_result DBQXCISignatureHandler::CreateDBSig(const char* a, const char* b, const char* c,
                                                  char* out, size_t* out_len) {
    return _Forward(&a_qxci_sig_iface::create_dbsig_func, QXCI_ERROR, a, b, c, out, out_len);
}

a_qxci_result DBQXCISignatureHandler::CreateConnSig(const char* a, const char* b, char* out,
                                                    size_t* out_len) {
    return _Forward(&a_qxci_sig_iface::create_connsig_func, QXCI_ERROR, a, b, out, out_len);
}

a_qxci_result DBQXCISignatureHandler::VerifyDBSig(const char* a, const char* b, const char* c,
                                                  const char* sig, a_bool* ok) {
    return _Forward(&a_qxci_sig_iface::verify_dbsig_func, QXCI_ERROR, a, b, c, sig, ok);
}

a_qxci_result DBQXCISignatureHandler::VerifyConnSig(const char* a, const char* b, const char* sig,
                                                    a_bool* ok) {
    return _Forward(&a_qxci_sig_iface::verify_connsig_func, QXCI_ERROR, a, b, sig, ok);
}

// ---- TLS connection ----

a_qxci_io_result DBQXCIStreamConn::Read(a_qxci_byte* buf, size_t len, size_t* got) {
    return _Forward(&a_qxci_conn_iface::read_func, QXCI_IO_ERROR, buf, len, got);
}

a_qxci_io_result DBQXCIStreamConn::Write(const a_qxci_byte* data, size_t len) {
    return _Forward(&a_qxci_conn_iface::write_func, QXCI_IO_ERROR, data, len);
}

a_qxci_io_result DBQXCIStreamConn::FlushWrites() {
    return _Forward(&a_qxci_conn_iface::flush_writes_func, QXCI_IO_ERROR);
}

// ---- TLS stream ----

a_qxci_result DBQXCIStream::Init(a_qxci_side side, a_qxci_user_option* options) {
    _side = side;
    return _Forward(&a_qxci_stream_iface::init_func, QXCI_ERROR, side, options);
}

a_qxci_result DBQXCIStream::Fini() {
    return _Forward(&a_qxci_stream_iface::fini_func, QXCI_ERROR);
}

a_qxci_byte DBQXCIStream::GetAlgorithmID() {
    return _Forward(&a_qxci_stream_iface::get_algorithm_id_func, 0);
}

DBQXCIStreamConn* DBQXCIStream::CreateConn(const a_qxci_conn_callbacks* cb,
                                           a_qxci_user_option* options, void* user_data,
                                           DBQXCIError* err) {
    err->Clear();
    const auto create = _iface != nullptr ? _iface->_conn_iface.create_func : nullptr;
    if (_handle == nullptr || create == nullptr) {
        err->Set(_last_error.setErrorCode(QxciErrUnknown));
        return nullptr;
    }
    return qxci_create<DBQXCIStreamConn>({_env, _iface, STATIC_IFACE}, create, err, _handle, cb,
                                         options, user_data);
}
