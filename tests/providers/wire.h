#ifndef QUOREL_TESTS_PROVIDERS_WIRE_H
#define QUOREL_TESTS_PROVIDERS_WIRE_H

/// What a connection's callbacks work on: a wire in memory on which, by itself, nobody answers.

#include <algorithm>
#include <string>
#include <utility>

#include "kovcert/qxci/qxci.h"

class Wire {
  public:
    explicit Wire(std::string incoming = "") : in(std::move(incoming)) {}
    virtual ~Wire() = default;
    Wire(const Wire&) = delete;
    Wire& operator=(const Wire&) = delete;
    /// Makes `in` longer if there is an answer to what has been written.
    virtual void answer() {}

    std::string in;                              // on its way to the provider
    std::string out;                             // all that the provider has written
    size_t limit = SIZE_MAX;                     // bytes that arrive before the end
    a_qxci_io_result end = QXCI_IO_WOULD_BLOCK;  // what reads then give
    size_t at_most = SIZE_MAX;                   // bytes that arrive in one read
    bool stutters = false;                       // nothing arrives every other time
    bool only_whole = false;  // nothing arrives until all that is asked for is there
    Wire* other = nullptr;    // gets what is written
    bool welcome = true;      // what clients are
    int got_instead = -1;     // what reads say that they got, if not what they did
    a_qxci_io_result write_result = QXCI_IO_OK;
    std::string log;
    size_t taken = 0;  // bytes that the provider has read
    int reads = 0, writes = 0;

    /// The records that went out of a content type, or of any.
    int records(int type = -1) const {
        int count = 0;
        for (size_t at = 0; at + 5 <= out.size();) {
            if (type < 0 || out[at] == type) ++count;
            at += 5 + 256 * static_cast<unsigned char>(out[at + 3]) +
                  static_cast<unsigned char>(out[at + 4]);
        }
        return count;
    }

    a_qxci_conn_callbacks callbacks = {read, write, write_log, nullptr, judge};

  private:
    static a_qxci_io_result read(void* user_data, unsigned char* buf, unsigned len, unsigned* got) {
        Wire& wire = *static_cast<Wire*>(user_data);
        ++wire.reads;
        if (wire.in.empty()) wire.answer();
        const size_t count =
            std::min({wire.in.size(), wire.limit - wire.taken, size_t{len}, wire.at_most});
        wire._stuttered = wire.stutters && !wire._stuttered;
        if (wire.taken == wire.limit) return wire.end;
        *got = static_cast<unsigned>(wire.got_instead >= 0 ? wire.got_instead : int(count));
        if (wire._stuttered || count == 0 || (wire.only_whole && count < len)) {
            return QXCI_IO_WOULD_BLOCK;
        }
        wire.in.copy(reinterpret_cast<char*>(buf), count);
        wire.in.erase(0, count);
        wire.taken += count;
        return QXCI_IO_OK;
    }
    static a_qxci_io_result write(void* user_data, const unsigned char* data, unsigned len) {
        Wire& wire = *static_cast<Wire*>(user_data);
        ++wire.writes;
        if (wire.write_result != QXCI_IO_OK) return wire.write_result;
        if (wire.taken == wire.limit && wire.end == QXCI_IO_ERROR) return QXCI_IO_ERROR;
        wire.out.append(reinterpret_cast<const char*>(data), len);
        if (wire.other != nullptr) wire.other->in.append(reinterpret_cast<const char*>(data), len);
        return QXCI_IO_OK;
    }
    static int write_log(void* user_data, int, const char* text, const a_qxci_byte*, unsigned) {
        static_cast<Wire*>(user_data)->log += text;
        return 0;
    }
    static int judge(void* user_data, const a_qxci_byte*, unsigned) {
        return static_cast<Wire*>(user_data)->welcome ? 1 : 0;
    }

    bool _stuttered = false;
};

#endif
