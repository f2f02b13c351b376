// For the concurrency tests: runs a function in several threads that all start at the same
// moment, so that their calls really overlap rather than run one after the other.
#ifndef CORVEL_CONTAINERS_RUN_TOGETHER_H_
#define CORVEL_CONTAINERS_RUN_TOGETHER_H_

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

namespace corvel {

// The number of threads every concurrency test starts.
constexpr int kTogether = 8;

// Runs body(k) for k in [0, threads) on threads of their own, released together once all of
// them are running, and returns when every one has finished.
inline void RunTogether(int threads, const std::function<void(int)> &body) {
  std::atomic<int> waiting{threads};
  std::vector<std::thread> running;
  for (int k = 0; k < threads; k++) {
    running.emplace_back([&, k] {
      waiting.fetch_sub(1);
      while (waiting.load() > 0) std::this_thread::yield();
      body(k);
    });
  }
  for (std::thread &t : running) t.join();
}

}  // namespace corvel

#endif  // CORVEL_CONTAINERS_RUN_TOGETHER_H_
