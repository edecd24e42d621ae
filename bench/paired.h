#ifndef QUOREL_BENCH_PAIRED_H
#define QUOREL_BENCH_PAIRED_H

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

#include "bench/figures.h"

/// Measures two ways to do the same work in turn, A B A B …, so that a machine whose speed drifts
/// treats both alike: how many times as fast as the peer the subject is, as the median of the
/// pairs.
class PairedBenchmark {
  public:
    /// `unit` is what a round's milliseconds are printed as: "ns" where a round does its work a
    /// million times.
    explicit PairedBenchmark(int rounds, const char* unit = "ms") : _rounds(rounds), _unit(unit) {}

    /// Prints "label: <speed> times as fast (<time> and <time> <unit>)", the subject's time first,
    /// and records it. `least` is the speed that is wanted, 0 if none is.
    template <class Subject, class Peer>
    void run(const char* label, double least, Subject subject, Peer peer) const {
        std::vector<double> speeds, subject_times, peer_times;
        subject();
        peer();
        for (int i = 0; i < _rounds; ++i) {
            subject_times.push_back(milliseconds(subject));
            peer_times.push_back(milliseconds(peer));
            speeds.push_back(peer_times.back() / subject_times.back());
        }
        const double speed = median(speeds);
        std::printf("%s: %.2f times as fast (%.2f and %.2f %s)\n", label, speed,
                    median(subject_times), median(peer_times), _unit);
        std::fflush(stdout);
        record_figure(label, speed, least);
    }

  private:
    template <class Work>
    static double milliseconds(Work work) {
        const auto start = std::chrono::steady_clock::now();
        work();
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
            .count();
    }

    static double median(std::vector<double> values) {
        const auto middle = values.begin() + static_cast<long>(values.size() / 2);
        std::nth_element(values.begin(), middle, values.end());
        return *middle;
    }

    int _rounds;
    const char* _unit;
};

#endif
