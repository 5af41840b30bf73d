// Running one piece of work per host, a given number of hosts at a time.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <thread>
#include <vector>

namespace tool {

// Calls work(0) ... work(count - 1), `fanout` at a time, on this thread and others.
template <typename Work>
void fanOut(std::size_t count, unsigned fanout, const Work& work) {
    std::atomic<std::size_t> next{0};
    const auto worker = [&] {
        for (std::size_t i = next++; i < count; i = next++) work(i);
    };
    std::vector<std::thread> workers;
    const std::size_t threads = std::min<std::size_t>(fanout, count);
    for (std::size_t i = 1; i < threads; ++i) workers.emplace_back(worker);
    worker();
    for (std::thread& t : workers) t.join();
}

}  // namespace tool
