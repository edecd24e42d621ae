#ifndef QUOREL_PROVIDERS_OPENSSL_CALLBACKBIO_H
#define QUOREL_PROVIDERS_OPENSSL_CALLBACKBIO_H

/// The raw bytes of a connection: an OpenSSL BIO over the owner's callbacks.
///
/// Records are collected and go out together when they fill the buffer, when something is to be
/// read, or on flush: one call of the owner's for several records. A few short records are
/// collected in a buffer that stays; more of them in one that is there until they have gone, so
/// that a connection at rest holds little memory. As much is read ahead as the owner has.

#include "kovcert/qxci/kit/memory.h"
#include "providers/openssl/emptyreads.h"
#include "providers/openssl/openssllibrary.h"

class CallbackBio {
  public:
    /// Both live longer. The callbacks may be filled in until init().
    CallbackBio(const qxci::Memory& memory, const a_qxci_conn_callbacks& callbacks)
        : _memory(memory), _callbacks(callbacks) {}
    CallbackBio(const CallbackBio&) = delete;
    CallbackBio& operator=(const CallbackBio&) = delete;
    ~CallbackBio() {
        _memory.free(_in);
        release_large();
    }

    /// Takes the buffers; false when there is no memory. `user_data` is for the callbacks.
    bool init(void* user_data);

    // The peer has begun a record, or sent a message of a handshake; a record of data has gone out,
    // which the peer may take for a reason to want new keys; the handshake is done, or data has
    // been read.
    void note_record() { ++_records; }
    void note_message() { ++_messages; }
    void note_sent() {
        --_records;
        --_messages;
    }
    void note_data() { _records = _messages = 0; }

    /// A BIO over this, which must outlive it; null when there is no memory.
    BioPtr make_bio();

    /// Sends what is collected, and gives the large buffer back; false when the owner cannot.
    bool flush();

    /// A callback has reported an error: nothing goes in or out any more.
    bool failed() const { return _failed; }
    /// Nothing has come in for so long that the peer counts as gone.
    bool gave_up() const { return _empty_reads.gave_up(); }
    /// More has come without data, in or out, than an honest peer sends: nothing goes in any more.
    /// Otherwise requests for a new handshake or new keys, tickets, and empty records would be
    /// answered or dropped without end, at the cost of this side's processor.
    bool flooded() const { return _records > most_idle + 1 || _messages > most_idle; }

  private:
    static int write_entry(BIO* bio, const char* data, size_t len, size_t* written);
    static int read_entry(BIO* bio, char* data, size_t len, size_t* got);
    static long control_entry(BIO* bio, int command, long number, void* pointer);
    bool make_method();

    bool write(const char* data, size_t len);
    bool send();
    size_t read(char* data, size_t len);
    bool fill(size_t wanted);
    size_t ask(size_t len);
    size_t room() const { return (_out == _small ? small_size : large_size) - _out_len; }
    void grow();
    void release_large();

    // What a mail client says and hears in a breath, and six records of 16 KiB with what TLS adds
    // to them: the large writes of the library, each in one.
    static constexpr size_t in_size = 4096, small_size = 4096, large_size = size_t{97} * 1024;

    // Records, of which one more may be about to bring data, and messages, of which a record can
    // hold thousands.
    static constexpr int most_idle = 1000;

    const qxci::Memory& _memory;
    const a_qxci_conn_callbacks& _callbacks;
    void* _user_data = nullptr;
    BioMethodPtr _method;
    unsigned char* _in = nullptr;     // in_size bytes; small_size more follow
    unsigned char* _small = nullptr;  // those
    unsigned char* _out = nullptr;    // where records are collected: those, or large_size bytes
    size_t _in_start = 0, _in_end = 0;
    size_t _out_len = 0;
    EmptyReads _empty_reads;
    int64_t _records = 0, _messages = 0;  // since data was read, less what has gone out
    bool _failed = false;
};

#endif
