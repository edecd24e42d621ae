#ifndef QUOREL_FUZZ_FRAMEPAIR_H
#define QUOREL_FUZZ_FRAMEPAIR_H

// A socket pair at whose far end an input waits, and behind it the end.

#include <string>

#include <sys/socket.h>
#include <unistd.h>

#include "fuzz/fuzzed.h"

class FramePair {
  public:
    explicit FramePair(const std::string& input) {
        check(socketpair(AF_UNIX, SOCK_STREAM, 0, _ends) == 0);
        check(write(_ends[1], input.data(), input.size()) == static_cast<ssize_t>(input.size()));
        shutdown(_ends[1], SHUT_WR);
    }
    ~FramePair() {
        close(_ends[0]);
        close(_ends[1]);
    }
    FramePair(const FramePair&) = delete;
    FramePair& operator=(const FramePair&) = delete;

    [[nodiscard]] int near_end() const { return _ends[0]; }

  private:
    int _ends[2] = {-1, -1};
};

#endif
