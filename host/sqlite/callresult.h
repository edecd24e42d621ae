#ifndef QUOREL_HOST_SQLITE_CALLRESULT_H
#define QUOREL_HOST_SQLITE_CALLRESULT_H

/// What a procedure handed back, shown to a person.

#include <cstdint>
#include <string>

#include "host/callframe.h"
#include "host/procedures.h"

namespace host {

/// A binary result as far as it is shown: its beginning and its length. It may be any file, so the
/// whole is not kept.
class BytesSummary {
  public:
    /// As CallFrame::on_result.
    void take(const void* data, std::uint32_t length, bool append);
    [[nodiscard]] std::uint64_t length() const { return _length; }
    /// As display_blob().
    [[nodiscard]] std::string display() const;

  private:
    std::string _head;
    std::uint64_t _length = 0;
};

/// Prints to standard output, by the kind of result: the status and its meaning; the bytes, as
/// `bytes` saw them go by; or the OUT values up to the last one that is not NULL, as a row.
void show_call_result(const Procedure& procedure, const CallFrame& frame,
                      const BytesSummary& bytes);

}  // namespace host

#endif
