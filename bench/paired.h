#ifndef QUOREL_BENCH_PAIRED_H
#define QUOREL_BENCH_PAIRED_H

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

/// Measures two ways to do the same work in turn, A B A B …, so that a machine whose speed drifts
/// treats both alike, and prints the median of the ratios of each pair.
class PairedBenchmark {
  public:
    /// `unit` is what a round's milliseconds are printed as: "ns" where a round does its work a
    /// million times.
    explicit PairedBenchmark(int rounds, const char* unit = "ms") : _rounds(rounds), _unit(unit) {}

    /// Prints "label: <ratio>x (subject <time> <unit>, peer <time> <unit>)"; returns the ratio.
    template <class Subject, class Peer>
    double run(const char* label, Subject subject, Peer peer) const {
        std::vector<double> ratios, subject_times, peer_times;
        subject();
        peer();
        for (int i = 0; i < _rounds; ++i) {
            subject_times.push_back(milliseconds(subject));
            peer_times.push_back(milliseconds(peer));
            ratios.push_back(subject_times.back() / peer_times.back());
        }
        const double ratio = median(ratios);
        std::printf("%s: %.3fx (subject %.2f %s, peer %.2f %s)\n", label, ratio,
                    median(subject_times), _unit, median(peer_times), _unit);
        return ratio;
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
