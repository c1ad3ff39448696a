// The cost of a hop: a 16 by 16 frame through one enabled filter that changes no pixel, as the slope between chains of
// different lengths; what is copied on the way; what memory grows by.
//
// A sample pushes frames for at least 20 ms; least and median of 15 samples, CPU time of the thread. An idle thread lives
// beside, since the C library leaves out atomics in a process with one thread and no real graph has just one.
#include <time.h>

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "pantiq_chain.h"

namespace {

double CpuNanoseconds() {
  timespec t;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) * 1e9 + static_cast<double>(t.tv_nsec);
}

long ResidentKiB() {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    if (word == "VmRSS:") {
      long kib = 0;
      status >> kib;
      return kib;
    }
  }
  return 0;
}

struct Figure {
  double least, median;
};

Figure Measure(subject_chain::Chain& chain) {
  long repeats = 1;
  for (double t = 0; t < 20e6; repeats *= 2) {
    const double begin = CpuNanoseconds();
    for (long i = 0; i < repeats; ++i) chain.Push();
    t = CpuNanoseconds() - begin;
  }
  std::vector<double> samples;
  for (int s = 0; s < 15; ++s) {
    const double begin = CpuNanoseconds();
    for (long i = 0; i < repeats; ++i) chain.Push();
    samples.push_back((CpuNanoseconds() - begin) / static_cast<double>(repeats));
  }
  std::sort(samples.begin(), samples.end());
  return {samples.front(), samples[samples.size() / 2]};
}

}  // namespace

int main() {
  std::mutex mutex;
  std::condition_variable wake;
  bool stop = false;
  std::thread idle([&] {
    std::unique_lock guard(mutex);
    wake.wait(guard, [&] { return stop; });
  });

  std::printf("%-34s %8s %12s %12s %14s\n", "frames through filters, 16x16 BGR", "filters", "ns least", "ns median", "ns per hop");
  for (const char* kind : {"filter", "pass"}) {
    Figure last{};
    int last_length = 0;
    for (int length : {1, 10, 100, 300}) {
      const auto chain = subject_chain::MakeChain(kind, length, 16, 16);
      const Figure figure = Measure(*chain);
      std::printf("%-34s %8d %12.1f %12.1f", kind[0] == 'f' ? "enabled, no pixel changed" : "disabled", length, figure.least,
                  figure.median);
      if (last_length > 0) std::printf(" %14.1f", (figure.least - last.least) / (length - last_length));
      std::printf("\n");
      last = figure;
      last_length = length;
    }
  }

  const auto chain = subject_chain::MakeChain("filter", 20, 640, 480);
  for (int i = 0; i < 1000; ++i) chain->Push();
  const std::uint64_t copied = pantiq::PQFramePool::CopiedBytes();
  const long before = ResidentKiB();
  for (int i = 0; i < 100000; ++i) chain->Push();
  std::printf("\n100000 frames of 640x480 through 20 filters that change nothing: %llu bytes copied, %ld KiB more memory\n",
              static_cast<unsigned long long>(pantiq::PQFramePool::CopiedBytes() - copied), ResidentKiB() - before);

  {
    std::lock_guard guard(mutex);
    stop = true;
  }
  wake.notify_all();
  idle.join();
}
