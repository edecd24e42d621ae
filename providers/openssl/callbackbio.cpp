#include "providers/openssl/callbackbio.h"

#include <algorithm>
#include <cstring>

bool CallbackBio::init(void* user_data) {
    _user_data = user_data;
    _in = static_cast<unsigned char*>(_memory.alloc(in_size + small_size));
    if (_in == nullptr) return false;
    _small = _out = _in + in_size;
    return make_method();
}

bool CallbackBio::make_method() {
    _method.reset(BIO_meth_new(BIO_TYPE_SOURCE_SINK, "connection callbacks"));
    return _method != nullptr && BIO_meth_set_write_ex(_method.get(), write_entry) == 1 &&
           BIO_meth_set_read_ex(_method.get(), read_entry) == 1 &&
           BIO_meth_set_ctrl(_method.get(), control_entry) == 1;
}

BioPtr CallbackBio::make_bio() {
    BioPtr bio(BIO_new(_method.get()));
    if (bio == nullptr) return bio;
    BIO_set_data(bio.get(), this);
    BIO_set_init(bio.get(), 1);
    return bio;
}

bool CallbackBio::flush() {
    const bool sent = send();
    release_large();
    return sent;
}

bool CallbackBio::send() {
    if (_failed || _out_len == 0) return !_failed;
    _failed = _callbacks.write_cb(_user_data, _out, static_cast<unsigned>(_out_len)) != QXCI_IO_OK;
    // Also after a failure: nobody knows how much of it has left.
    _out_len = 0;
    return !_failed;
}

bool CallbackBio::write(const char* data, size_t len) {
    // Only collected, until a flush: each call of the owner may be a system call.
    if (len > room()) grow();
    while (len > 0) {
        if (room() == 0 && !send()) return false;
        const size_t count = std::min(len, room());
        std::memcpy(_out + _out_len, data, count);
        _out_len += count;
        data += count;
        len -= count;
    }
    return !_failed;
}

/// Without memory there are just more calls of the owner's.
void CallbackBio::grow() {
    if (_out != _small) return;
    auto* const large = static_cast<unsigned char*>(_memory.alloc(large_size));
    if (large == nullptr) return;
    std::memcpy(large, _out, _out_len);
    _out = large;
}

void CallbackBio::release_large() {
    if (_out != _small) _memory.free(_out);
    _out = _small;
}

/// The bytes that were read, 0 when there are none now or no more.
size_t CallbackBio::read(char* data, size_t len) {
    if (_in_start == _in_end && !fill(len)) return 0;
    const size_t count = std::min(len, _in_end - _in_start);
    std::memcpy(data, _in + _in_start, count);
    _in_start += count;
    return count;
}

/// An owner that is fed by others may give nothing until it has all that is asked for; one that has
/// nothing ahead is therefore asked again for just what is wanted.
bool CallbackBio::fill(size_t wanted) {
    // Before a wait: the peer may be waiting for just these bytes.
    if (!flush()) return false;
    _in_start = 0;
    _in_end = ask(in_size);
    if (_in_end == 0 && !_failed && wanted < in_size) _in_end = ask(wanted);
    if (_in_end > 0) {
        _empty_reads.reset();
        return true;
    }
    if (!_failed) _empty_reads.wait();
    return false;
}

size_t CallbackBio::ask(size_t len) {
    unsigned got = 0;
    const a_qxci_io_result result =
        _callbacks.read_cb(_user_data, _in, static_cast<unsigned>(len), &got);
    if (result == QXCI_IO_WOULD_BLOCK) return 0;
    _failed = result != QXCI_IO_OK || got > len;
    return _failed ? 0 : got;
}

int CallbackBio::write_entry(BIO* bio, const char* data, size_t len, size_t* written) {
    BIO_clear_retry_flags(bio);
    if (!static_cast<CallbackBio*>(BIO_get_data(bio))->write(data, len)) return 0;
    *written = len;
    return 1;
}

int CallbackBio::read_entry(BIO* bio, char* data, size_t len, size_t* got) {
    CallbackBio& self = *static_cast<CallbackBio*>(BIO_get_data(bio));
    BIO_clear_retry_flags(bio);
    *got = self.flooded() ? 0 : self.read(data, len);
    // Without this flag no bytes are a failure that lasts (BIO_should_retry(3)).
    if (*got == 0 && !self.failed() && !self.flooded()) BIO_set_retry_read(bio);
    return *got > 0 ? 1 : 0;
}

long CallbackBio::control_entry(BIO* bio, int command, long, void*) {
    if (command != BIO_CTRL_FLUSH) return 0;
    return static_cast<CallbackBio*>(BIO_get_data(bio))->flush() ? 1 : 0;
}
