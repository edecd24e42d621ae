#ifndef QUOREL_HOST_WORKER_SHAREDPIECES_H
#define QUOREL_HOST_WORKER_SHAREDPIECES_H

#include <cstdint>

#include <sys/types.h>

#include "host/descriptor.h"

namespace host {

/// Memory that a host and its worker share: slots for the pieces of a large result, so that they do
/// not pass through the socket. The host makes it and the worker finds it among the host's
/// descriptors. Neither can shrink it under the other. What a slot holds may change at any time, so
/// its bytes are data and never lengths.
class SharedPieces {
  public:
    static constexpr std::uint32_t slots = 4;
    static constexpr std::uint32_t slot_size = 131072;

    SharedPieces() = default;
    SharedPieces(const SharedPieces&) = delete;
    SharedPieces& operator=(const SharedPieces&) = delete;
    ~SharedPieces() { _close(); }

    /// New memory in place of what there was, so that neither an earlier worker nor one of a forked
    /// copy of the host writes to it. False, with none, where it cannot be had; the socket does as
    /// well.
    bool create();
    /// What process `host` has created under descriptor `number`.
    bool open(pid_t host, int number);

    [[nodiscard]] bool is_there() const { return _memory != nullptr; }
    [[nodiscard]] int number() const { return _descriptor.number(); }
    [[nodiscard]] char* slot(std::uint32_t index) const {
        return _memory + std::size_t{index} * slot_size;
    }

  private:
    bool _map();
    void _close();

    Descriptor _descriptor;
    char* _memory = nullptr;
};

}  // namespace host

#endif
