#ifndef QUOREL_BENCH_SINKPROCESS_H
#define QUOREL_BENCH_SINKPROCESS_H

#include <csignal>
#include <cstdlib>
#include <memory>

#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench/securesink.h"

/// From now on this process, and what it starts, runs on one CPU.
inline void use_cpu(int cpu) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(cpu, &set);
    sched_setaffinity(0, sizeof set, &set);
}

/// The mail server in a process of its own, on one CPU.
class SinkProcess {
  public:
    /// With STARTTLS when it has a certificate.
    SinkProcess(const Certificate* certificate, int cpu) {
        int ends[2];
        if (pipe(ends) != 0) std::abort();
        _pid = fork();
        if (_pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            use_cpu(cpu);
            std::unique_ptr<SMTPSink> sink;
            if (certificate != nullptr) {
                sink = std::make_unique<SecureSink>(*certificate);
            } else {
                sink = std::make_unique<SMTPSink>();
            }
            const int own_port = sink->port();
            if (write(ends[1], &own_port, sizeof own_port) != sizeof own_port) std::abort();
            sink->run();
        }
        if (read(ends[0], &port, sizeof port) != sizeof port) std::abort();
        close(ends[0]);
        close(ends[1]);
    }
    ~SinkProcess() {
        kill(_pid, SIGKILL);
        waitpid(_pid, nullptr, 0);
    }
    SinkProcess(const SinkProcess&) = delete;

    int port = 0;

  private:
    pid_t _pid;
};

#endif
