#ifndef QUOREL_HOST_XPCALL_REPORT_H
#define QUOREL_HOST_XPCALL_REPORT_H

/// What xpcall says: values on standard output, all else on standard error.

#include <cstdint>
#include <string>
#include <vector>

#include "host/callframe.h"

namespace host {

/// xpcall's exit statuses.
enum XpcallExit { EXIT_SUCCEEDED = 0, EXIT_FAILED = 1, EXIT_NOT_CALLED = 2 };

/// Says on standard error what is wrong. EXIT_NOT_CALLED.
int complain(const std::string& what);

/// Standard output for the pieces of a binary result. Not stdout, whose buffer would tell of a full
/// disk when the call is over, and take each byte twice. Nobody need read it: a call of `engine`
/// that can be ended then ends while it waits here.
class Output {
  public:
    explicit Output(const Engine& engine);

    /// False when the call is to end, or the bytes could not be written; then failure() tells why.
    bool write_piece(const void* data, std::uint32_t length);

    [[nodiscard]] std::uint64_t written() const { return _written; }
    [[nodiscard]] char last() const { return _last; }       ///< byte written; a line end at first
    [[nodiscard]] int failure() const { return _failure; }  ///< errno, or 0

  private:
    const Engine& _engine;
    std::size_t _at_once = SIZE_MAX;
    std::uint64_t _written = 0;
    char _last = '\n';
    int _failure = 0;
};

/// Shows what the call of `frame` handed back. `asked` says of each parameter by its number whether
/// a NULL in it is shown too; a binary result has gone to `output` already. The exit status.
int report(const CallFrame& frame, const Procedure& procedure, const std::vector<bool>& asked,
           const Output& output);

}  // namespace host

#endif
