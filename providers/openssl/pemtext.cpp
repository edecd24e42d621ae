#include "providers/openssl/pemtext.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr off_t max_file = off_t{16} << 20;

int open_file(const char* file) {
    int descriptor;
    // Not to wait for the writer of a pipe, which is refused anyway.
    do {
        descriptor = open(file, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    } while (descriptor < 0 && errno == EINTR);
    return descriptor;
}

/// An errno for what is no file of certificates; 0: fine.
int judge_file(const struct stat& status) {
    if (S_ISDIR(status.st_mode)) return EISDIR;
    if (!S_ISREG(status.st_mode)) return EINVAL;
    return status.st_size > max_file ? EFBIG : 0;
}

}  // namespace

PemText::~PemText() {
    if (_data != nullptr) OPENSSL_cleanse(_data, _room);
    _memory.free(_data);
}

bool PemText::read_file(const char* file, qxci::ErrorRecord& error) {
    _source = file;
    const int descriptor = open_file(file);
    if (descriptor < 0) return bad_file(errno, error);
    const bool done = read_descriptor(descriptor, error);
    close(descriptor);
    return done;
}

bool PemText::read_descriptor(int descriptor, qxci::ErrorRecord& error) {
    struct stat status;
    if (fstat(descriptor, &status) != 0) return bad_file(errno, error);
    if (const int fault = judge_file(status); fault != 0) return bad_file(fault, error);
    if (!reserve(static_cast<size_t>(status.st_size), error)) return false;
    // A file that grows meanwhile is taken as it was, one that shrinks as far as it goes.
    while (_len < _room) {
        const ssize_t count = read(descriptor, _data + _len, _room - _len);
        if (count == 0) break;
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return bad_file(errno, error);
        _len += static_cast<size_t>(count);
    }
    return true;
}

bool PemText::set(const char* text, const char* option, qxci::ErrorRecord& error) {
    _source = option;
    if (!reserve(std::strlen(text), error)) return false;
    std::memcpy(_data, text, _room);
    _len = _room;
    return true;
}

bool PemText::reserve(size_t room, qxci::ErrorRecord& error) {
    _data = static_cast<char*>(_memory.alloc(room + 1));  // not 0, for which there may be null
    if (_data == nullptr) return error.fail(QxciErrNoMemory);
    _room = room;
    return true;
}

bool PemText::bad_file(int system_error, qxci::ErrorRecord& error) const {
    const bool missing = system_error == ENOENT || system_error == ENOTDIR;
    return error.fail(missing ? QxciErrCantFindCertFile : QxciErrBadCertFile, _source,
                      static_cast<uint32_t>(system_error));
}

bool PemText::contains(const char* mark) const {
    return memmem(_data, _len, mark, std::strlen(mark)) != nullptr;
}

BioPtr PemText::open() const {
    // It reads in place: no second copy of a key.
    return BioPtr(BIO_new_mem_buf(_data, static_cast<int>(_len)));
}

bool at_end_of_pem() {
    const unsigned long reason = ERR_peek_last_error();
    return ERR_GET_LIB(reason) == ERR_LIB_PEM && ERR_GET_REASON(reason) == PEM_R_NO_START_LINE;
}

int no_password(char*, int, int, void*) {
    return -1;
}
