#include <new>

#include "extdll/mailargs.h"
#include "extdll/mailcrypto.h"
#include "extdll/securesmtp.h"
#include "extdll/sendmail.h"

SendmailState::SendmailState(int32 connection) : cid(connection) {}

SendmailState::~SendmailState() {
    _EndEnvironment();
}

// The client that the arguments ask for, not yet connected.
int32 SendmailState::_MakeClient(const a_smtp_start& start, std::unique_ptr<SMTPClient>* client) {
    if (start.trusted_certificate == nullptr) {
        client->reset(new (std::nothrow) SMTPClient);
        return *client != nullptr ? MAIL_OK : MAIL_NO_MEMORY;
    }
    const int32 result = _NeedEnvironment();
    if (result != MAIL_OK) return result;
    auto* const secure = new (std::nothrow) SecureSMTPClient(qxcienv, &*langstring);
    if (secure == nullptr) return MAIL_NO_MEMORY;
    client->reset(secure);
    secure->SetTrustedCertificate(start.trusted_certificate, start.cert_company, start.cert_unit,
                                  start.cert_name);
    return MAIL_OK;
}

int32 SendmailState::_NeedEnvironment() {
    if (qxcienv != nullptr) return MAIL_OK;
    DBQXCIError err;
    std::unique_ptr<DBQXCIEnvironment> env(new (std::nothrow)
                                               DBQXCIEnvironment(&mail_crypto_callbacks, nullptr));
    if (env == nullptr) return MAIL_NO_MEMORY;
    if (env->Init(false, external_library_name, nullptr, &err) != QXCI_OK) return MAIL_NOT_SECURE;
    qxcienv = env.release();
    return MAIL_OK;
}

void SendmailState::_EndEnvironment() {
    if (qxcienv == nullptr) return;
    qxcienv->Fini();
    delete qxcienv;
    qxcienv = nullptr;
}

int32 SendmailState::startsmtp(const a_smtp_start& start) {
    if (!is_usable()) return MAIL_NO_MEMORY;
    // An environment that a failed start left is used again: making one loads the provider.
    if (smtp_handle != nullptr) stopsmtp();
    std::unique_ptr<SMTPClient> client;
    int32 result = _MakeClient(start, &client);
    if (result != MAIL_OK) return result;
    result = client->Connect(start.sender, start.sender_name, start.host, start.port, start.timeout,
                             start.auth_username, start.auth_password);
    if (result == MAIL_OK) smtp_handle = client.release();
    return result;
}

int32 SendmailState::sendsmtp(const a_mail& mail) {
    if (smtp_handle == nullptr) return MAIL_NOT_STARTED;
    const AddressList to(mail.recipient);
    const AddressList cc(mail.cc_recipient);
    const AddressList bcc(mail.bcc_recipient);
    if (!to.is_whole() || !cc.is_whole() || !bcc.is_whole()) return MAIL_NO_MEMORY;
    // Before anything is said: RFC 5321, section 3.3, wants a recipient in each transaction.
    if (to.count() == 0 && cc.count() == 0 && bcc.count() == 0) return MAIL_NOTHING_TO_SEND;
    return smtp_handle->SendMessage(mail.subject, mail.message, to.addresses(), to.count(),
                                    cc.addresses(), cc.count(), bcc.addresses(), bcc.count(),
                                    mail.include_file, mail.content_type);
}

int32 SendmailState::stopsmtp() {
    if (smtp_handle != nullptr) {
        smtp_handle->Disconnect();
        delete smtp_handle;
        smtp_handle = nullptr;
    }
    _EndEnvironment();
    return MAIL_OK;
}
