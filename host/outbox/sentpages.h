#ifndef QUOREL_HOST_OUTBOX_SENTPAGES_H
#define QUOREL_HOST_OUTBOX_SENTPAGES_H

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace host::outbox {

/// Gives the memory of a long text back to the system while a call takes it, from its first byte to
/// its last and never twice. What was given back reads as zeros; whoever owns the text frees it as
/// before.
class SentPages {
  public:
    /// `text` lies in private memory. `others`: bytes of the call's other arguments.
    SentPages(std::string_view text, std::size_t others);

    /// The call has asked for this many bytes of its arguments (CallFrame::on_progress).
    void release(std::uint64_t moved);

  private:
    const std::string_view _text;
    const std::uint64_t _lag;
    std::size_t _released = 0;  // bytes of the text
};

}  // namespace host::outbox

#endif
