#ifndef QUOREL_BENCH_FIGURES_H
#define QUOREL_BENCH_FIGURES_H

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>

/// Adds a row to the file that `tools/bench --plot` names in the environment, if it does: the
/// benchmark, what was compared, how many times as fast as the peer this code was, and how many
/// times it has to be at least (0: there is no limit).
inline void record_figure(const char* label, double speed, double least) {
    const char* const path = std::getenv("QUOREL_BENCH_FIGURES");
    if (path == nullptr) return;
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path, "a"), std::fclose);
    if (file == nullptr) std::abort();
    std::fprintf(file.get(), "%s\t%s\t%.3f\t%.3f\n", program_invocation_short_name, label, speed,
                 least);
}

#endif
