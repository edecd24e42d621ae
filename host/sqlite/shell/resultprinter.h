#ifndef QUOREL_HOST_SQLITE_SHELL_RESULTPRINTER_H
#define QUOREL_HOST_SQLITE_SHELL_RESULTPRINTER_H

/// What a procedure handed back, shown to a person.

#include <cstdint>
#include <string>

#include "host/callframe.h"
#include "host/procedures.h"
#include "host/sqlite/shell/rowprinter.h"

namespace host {

/// A binary result as far as it is shown: its beginning and its length. It may be any file, so no
/// more is kept than the display takes.
class BytesSummary {
  public:
    explicit BytesSummary(std::size_t most_kept) : _most_kept(most_kept) {}

    /// As CallFrame::on_result.
    void take(const void* data, std::uint32_t length, bool append);
    /// Good as long as the summary.
    [[nodiscard]] Field field() const;

  private:
    const std::size_t _most_kept;
    std::string _head;
    std::uint64_t _length = 0;
};

/// Prints to standard output, by the kind of result: the status and its meaning; the bytes, as
/// `bytes` saw them go by; or the OUT values up to the last one that is not NULL, as a row. Where
/// the style is for programs, the status and its meaning are a row too, and no words are added.
void show_call_result(const OutputStyle& style, const Procedure& procedure, const CallFrame& frame,
                      const BytesSummary& bytes);

}  // namespace host

#endif
