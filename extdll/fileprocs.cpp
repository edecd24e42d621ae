// xp_read_file and xp_write_file: whole files between the server's machine and SQL.

#include <cstdlib>

#include <fcntl.h>

#include "extdll/extcall.h"
#include "extdll/procedures.h"
#include "utils/unix/posixio.h"
#include "utils/unix/utdescriptor.h"

namespace {

constexpr std::size_t piece_size = 32768;
constexpr mode_t new_file_mode = 0660;

/// One piece's worth of memory, or null when there is none. Not on the stack: the thread is the
/// host's, and may have little.
class PieceBuffer {
  public:
    PieceBuffer() : _bytes(malloc(piece_size)) {}
    ~PieceBuffer() { free(_bytes); }
    PieceBuffer(const PieceBuffer&) = delete;
    PieceBuffer& operator=(const PieceBuffer&) = delete;

    [[nodiscard]] void* bytes() const { return _bytes; }

  private:
    void* _bytes;
};

/// Delivers the file as the result. False when it could not be delivered whole.
bool deliver_file(const ExternalCall& call, const char* name) {
    const UTDescriptor file(_posix_open(name, O_RDONLY, 0));
    if (!file.is_open()) return false;
    const PieceBuffer buffer;
    if (buffer.bytes() == nullptr) return false;

    bool append = false;
    for (;;) {
        const ssize_t count = _posix_read(file.get(), buffer.bytes(), piece_size);
        if (count < 0) return false;
        // Kept: an empty file sets no result at all.
        if (count == 0) return true;
        if (!call.set_value(result_argument, EXTFN_TYPE_BINARY, buffer.bytes(),
                            static_cast<uint32>(count), append)) {
            return false;
        }
        // A read fills the buffer unless the file ends: asking again would only cost a call, or
        // wait at a terminal.
        if (static_cast<std::size_t>(count) < piece_size) return true;
        append = true;
    }
}

/// Rewrites the file with the value whose first piece is at hand. False when it could not be opened
/// or a piece was missing; the file then keeps what was written and the rest of what it held.
bool rewrite_file(const char* name, ArgumentPieces& contents) {
    // Not emptied yet: a value that does not come whole leaves what it has not replaced.
    const UTDescriptor file(_posix_open(name, O_WRONLY | O_CREAT, new_file_mode));
    if (!file.is_open()) return false;
    do {
        // Kept: a failing write is not detected; the status tells that all pieces were offered.
        _posix_write(file.get(), contents.data(), contents.length());
    } while (contents.next());
    if (!contents.complete()) return false;
    _posix_ftruncate(file.get(), _posix_tell(file.get()));
    return true;
}

bool write_file(const ExternalCall& call, const TextArgument& name) {
    if (name.text() == nullptr) return false;
    ArgumentPieces contents(call, 2);
    if (!contents.first() || contents.is_null() || contents.total_length() == 0) return false;
    return rewrite_file(name.text(), contents);
}

}  // namespace

void xp_read_file(an_extfn_api* api, void* arg_handle) {
    const ExternalCall call(api, arg_handle);
    TextArgument name;
    if (name.read(call, 1) == TextArgument::Outcome::Missing) return;
    if (name.text() == nullptr || !deliver_file(call, name.text())) {
        call.set_null(result_argument, EXTFN_TYPE_BINARY);
    }
}

void xp_write_file(an_extfn_api* api, void* arg_handle) {
    const ExternalCall call(api, arg_handle);
    TextArgument name;
    if (name.read(call, 1) == TextArgument::Outcome::Missing) return;
    call.set_status(write_file(call, name) ? 0 : 1);
}
