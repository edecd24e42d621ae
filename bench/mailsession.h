#ifndef QUOREL_BENCH_MAILSESSION_H
#define QUOREL_BENCH_MAILSESSION_H

#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "extdll/procedures.h"

/// A mail session of the library's, used as a server uses it: through the exported procedures.
class MailSession {
  public:
    /// `certificate_file` for a session over TLS, empty for one in clear text.
    MailSession(int port, const std::string& certificate_file) {
        Call start;
        start.texts = {{1, "ann@a.test"}, {2, "127.0.0.1"}};
        start.numbers = {{3, port}, {4, 60}, {12, connection}};
        if (!certificate_file.empty()) start.texts[8] = certificate_file;
        start.make(xp_startsmtp);
    }
    ~MailSession() {
        Call stop;
        stop.numbers = {{1, connection}};
        stop.make(xp_stopsmtp);
    }
    MailSession(const MailSession&) = delete;
    MailSession& operator=(const MailSession&) = delete;

    /// `attachment` is a file's path, or empty.
    void send(const std::string& body, const std::string& attachment) {
        Call mail;
        mail.texts = {{1, "bob@b.test"}, {2, "Hi"}, {6, body}};
        if (!attachment.empty()) mail.texts[10] = attachment;
        mail.numbers = {{20, connection}};
        mail.make(xp_sendmail);
    }

  private:
    static constexpr int32_t connection = 1;

    /// The server's side of a call: arguments by number, and the status, which has to be 0.
    struct Call {
        std::map<uint32_t, std::string> texts;
        std::map<uint32_t, int32_t> numbers;
        int32_t status = -1;

        void make(an_extfn_proc* procedure) {
            an_extfn_api api = {get_value, get_piece, set_value, set_cancel};
            procedure(&api, this);
            if (status != 0) std::abort();
        }
    };

    static int16_t get_value(void* handle, uint32_t number, an_extfn_value* value) {
        Call& call = *static_cast<Call*>(handle);
        *value = {};
        if (const auto text = call.texts.find(number); text != call.texts.end()) {
            const auto length = static_cast<uint32_t>(text->second.size());
            *value = {text->second.data(), length, {length}, EXTFN_TYPE_CHAR};
        } else if (const auto found = call.numbers.find(number); found != call.numbers.end()) {
            *value = {&found->second, sizeof(int32_t), {sizeof(int32_t)}, EXTFN_TYPE_INT32};
        }
        return 1;
    }
    static int16_t get_piece(void*, uint32_t, an_extfn_value*, uint32_t) { return 0; }
    static int16_t set_value(void* handle, uint32_t, an_extfn_value* value, int16_t) {
        std::memcpy(&static_cast<Call*>(handle)->status, value->data, sizeof(int32_t));
        return 1;
    }
    static void set_cancel(void*, void* record) { std::free(record); }
};

#endif
