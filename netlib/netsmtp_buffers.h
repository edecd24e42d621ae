#ifndef QUOREL_NETLIB_NETSMTP_BUFFERS_H
#define QUOREL_NETLIB_NETSMTP_BUFFERS_H

/// What a client keeps from message to message, so that a message costs no allocation of large
/// blocks: 88 KiB to collect what it sends and, after a message with a small attachment, 20 KiB to
/// read the next one.

#include "netlib/netsmtp.h"
#include "utils/etc/base64.h"
#include "utils/etc/utstreambuffer.h"

/// Output into the text of the message, dots doubled.
class SMTPClient::SMTPClientOStream final : public UTOStream {
  public:
    explicit SMTPClientOStream(SMTPClient* client) : _client(client) {}

    /// Kept: returns 0 whatever happens; callers do not look at the count.
    size_t do_put(const a_byte* data, size_t n) override {
        a_bool ignored = false;
        return static_cast<size_t>(
            _client->_SendRawText(reinterpret_cast<const char*>(data), n, &ignored));
    }

  private:
    SMTPClient* _client;  // not owned
};

/// Writes to the connection until a write fails, and then no more: the rest of a message would only
/// run into the same time-out, block by block.
class SMTPClient::GuardedOStream final : public UTOStream {
  public:
    explicit GuardedOStream(a_bool& failed) : _failed(failed) {}

    void write_to(UTOStream* connection) { _connection = connection; }

    size_t do_put(const a_byte* data, size_t n) override {
        constexpr auto failed = static_cast<size_t>(-1);
        for (size_t done = 0; done < n && !_failed;) {
            const size_t written = _connection->put(data + done, n - done);
            _failed = written == failed || written == 0;
            if (!_failed) done += written;
        }
        return _failed ? failed : n;
    }

  private:
    UTOStream* _connection = nullptr;  // not owned
    a_bool& _failed;
};

/// What the client sends between begin() and end() is collected and leaves in large writes. Made
/// before the message is begun, since that cannot be broken off for want of memory.
class SMTPClient::JoinedWrites {
  public:
    explicit JoinedWrites(SMTPClient& client)
        : _slot(client._ostrm), _guard(client._write_failed),
          _buffer(new (std::nothrow) UTOStreamBuffer(_guard, size)) {}
    JoinedWrites(const JoinedWrites&) = delete;
    JoinedWrites& operator=(const JoinedWrites&) = delete;

    a_bool is_valid() const { return _buffer != nullptr && !_buffer->eof(); }
    void begin() {
        _guard.write_to(_slot.get());
        _slot.swap(_buffer);
    }
    void end() {
        _slot.swap(_buffer);
        static_cast<UTOStreamBuffer&>(*_buffer).flush();
    }

  private:
    // What a block of 64 KiB becomes in base64: a write for each read of a large attachment.
    static constexpr size_t size = size_t{88} * 1024;

    std::unique_ptr<UTOStream>& _slot;
    GuardedOStream _guard;
    std::unique_ptr<UTOStream> _buffer;  // while begun, the connection
};

/// The contents of files on their way into messages, block by block. Made like JoinedWrites.
class SMTPClient::AttachmentBlocks {
  public:
    /// For files that are `small`, which a block holds whole, or for larger ones.
    AttachmentBlocks(const SMTPClient& client, a_bool small)
        : _small(small), _wanted(client._write_failed),
          _blocks(_wanted, small ? small_block : large_block) {}

    static a_bool is_small(uint64 file_size) { return file_size < small_block; }

    a_bool is_small() const { return _small; }
    a_bool is_valid() const { return _blocks.has_buffer(); }

    /// Writes all of `file` to `text` as base64 (RFC 2045 section 6.8).
    void encode(UTIStream& file, UTOStream& text) {
        constexpr uint16 line_length = 76;
        _wanted.read_from(&file);
        _blocks.restart();
        base64_encode(text, _blocks, line_length, true);
    }

  private:
    /// A file that ends early once nobody listens any more.
    class WantedIStream final : public UTIStream {
      public:
        explicit WantedIStream(const a_bool& useless) : _useless(useless) {}
        void read_from(UTIStream* file) { _file = file; }
        size_t do_get(a_byte* buf, size_t n) override { return _useless ? 0 : _file->get(buf, n); }

      private:
        UTIStream* _file = nullptr;  // not owned
        const a_bool& _useless;
    };

    static constexpr size_t small_block = size_t{20} * 1024;
    static constexpr size_t large_block = size_t{64} * 1024;

    const a_bool _small;
    WantedIStream _wanted;
    UTIStreamBuffer _blocks;
};

#endif
