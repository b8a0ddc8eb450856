#pragma once
// One background thread that runs queued work in order. sync() returns when
// the work (and everything queued before it) has run.
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace korv {

class SerialQueue {
public:
    SerialQueue() = default;
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;
    // Runs what is still queued, then stops the thread.
    ~SerialQueue();

    void async(std::function<void()> work);
    void sync(std::function<void()> work);

private:
    void run();
    std::mutex lock_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> work_;
    bool stopping_ = false;
    std::thread thread_;
};

} // namespace korv
