#ifndef QUOREL_PROVIDERS_STUB_STUBSCRIPT_H
#define QUOREL_PROVIDERS_STUB_STUBSCRIPT_H

/// Scripts, as qxcistub.h describes them, and the playing of one by an object. Nothing here takes
/// memory: a script is searched as text whenever an operation asks for its step.

#include <cstddef>

enum class StubOperation {
    env,
    object,
    work,
    stream,
    init,
    conn,
    handshake,
    read,
    write,
    flush,
    destroy,
};
inline constexpr size_t stub_operation_count = 11;

enum class StubOutcome { ok, fail, done, block, close, give, max };

/// What is to happen in one call.
struct a_stub_step {
    static constexpr size_t max_text = 255;

    StubOutcome outcome = StubOutcome::ok;
    size_t max = 0;                // of StubOutcome::max
    char text[max_text + 1] = {};  // of fail: "code,system,parm,..."; of give: what is read
};

/// True when the script, which is not null, is well formed.
bool stub_script_is_good(const char* script);

/// An object's way through a script. Used by one thread at a time, as the object is.
class StubPlay {
  public:
    /// `script` is well formed and stays as long as this; null: the script of the process, as it is
    /// at each call.
    explicit StubPlay(const char* script) : _script(script) {}

    const char* script() const { return _script; }

    /// The step for the next call of the operation.
    a_stub_step next(StubOperation operation);

  private:
    const char* _script;
    unsigned _version = 0;  // of the process's script
    unsigned _calls[stub_operation_count] = {};
};

#endif
