#ifndef QUOREL_BENCH_MAILSESSION_H
#define QUOREL_BENCH_MAILSESSION_H

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "extdll/procedures.h"

/// A mail session of the library's, used as a server uses it: through the exported procedures.
class MailSession {
  public:
    /// `certificate_file` for a session over TLS, empty for one in clear text.
    MailSession(int port, const std::string& certificate_file) {
        Call start;
        start.set(1, "ann@a.test");
        start.set(2, "127.0.0.1");
        start.set(3, port);
        start.set(4, 60);
        if (!certificate_file.empty()) start.set(8, certificate_file);
        start.set(12, connection);
        start.make(xp_startsmtp);
        _mail.set(1, "bob@b.test");
        _mail.set(2, "Hi");
        _mail.set(20, connection);
    }
    ~MailSession() {
        Call stop;
        stop.set(1, connection);
        stop.make(xp_stopsmtp);
    }
    MailSession(const MailSession&) = delete;
    MailSession& operator=(const MailSession&) = delete;

    /// `attachment` is a file's path, or empty.
    void send(const std::string& body, const std::string& attachment) {
        _mail.set(6, body);
        if (!attachment.empty()) _mail.set(10, attachment);
        _mail.make(xp_sendmail);
    }

  private:
    static constexpr int32_t connection = 1;

    /// The server's side of a call: arguments by number, and the status, which has to be 0. What a
    /// call costs here is counted to the library, so the arguments stand as they are handed over.
    class Call {
      public:
        /// `text` must outlive the call.
        void set(uint32_t number, std::string_view text) {
            const auto length = static_cast<uint32_t>(text.size());
            _values[number] = {const_cast<char*>(text.data()), length, {length}, EXTFN_TYPE_CHAR};
        }
        void set(uint32_t number, int32_t value) {
            constexpr uint32_t length = sizeof value;
            _numbers[number] = value;
            _values[number] = {&_numbers[number], length, {length}, EXTFN_TYPE_INT32};
        }

        void make(an_extfn_proc* procedure) {
            an_extfn_api api = {get_value, get_piece, set_value, set_cancel};
            procedure(&api, this);
            if (_status != 0) std::abort();
        }

      private:
        static int16_t get_value(void* handle, uint32_t number, an_extfn_value* value) {
            *value = static_cast<Call*>(handle)->_values[number];
            return 1;
        }
        static int16_t get_piece(void*, uint32_t, an_extfn_value*, uint32_t) { return 0; }
        static int16_t set_value(void* handle, uint32_t, an_extfn_value* value, int16_t) {
            std::memcpy(&static_cast<Call*>(handle)->_status, value->data, sizeof(int32_t));
            return 1;
        }
        static void set_cancel(void*, void* record) { std::free(record); }

        an_extfn_value _values[21] = {};
        int32_t _numbers[21] = {};
        int32_t _status = -1;
    };

    Call _mail;
};

#endif
