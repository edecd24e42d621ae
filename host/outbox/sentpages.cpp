#include "host/outbox/sentpages.h"

#include <algorithm>

#include <sys/mman.h>
#include <unistd.h>

namespace host::outbox {

namespace {

// What was asked for is counted before it is sent, and first pieces may be asked for twice.
constexpr std::size_t under_way = std::size_t{1} << 20;
// So much at a time, that a short message costs no system call.
constexpr std::size_t step = std::size_t{1} << 20;

}  // namespace

SentPages::SentPages(std::string_view text, std::size_t others)
    : _text(text), _lag(under_way + others) {}

void SentPages::release(std::uint64_t moved) {
    if (moved < _lag + _released + step) return;
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const auto taken =
        static_cast<std::size_t>(std::min<std::uint64_t>(moved - _lag, _text.size()));
    // The pages that lie in the text as a whole.
    const auto first = reinterpret_cast<std::uintptr_t>(_text.data());
    const std::uintptr_t begin = (first + _released + page - 1) / page * page;
    const std::uintptr_t end = (first + taken) / page * page;
    if (begin >= end) return;
    madvise(reinterpret_cast<void*>(begin), end - begin, MADV_DONTNEED);
    _released = end - first;
}

}  // namespace host::outbox
