#include "app/model/SerialQueue.h"

#include <future>

namespace korv {

SerialQueue::~SerialQueue() {
    {
        std::lock_guard guard(lock_);
        stopping_ = true;
    }
    wake_.notify_all();
    if (thread_.joinable()) thread_.join();
}

void SerialQueue::async(std::function<void()> work) {
    {
        std::lock_guard guard(lock_);
        work_.push_back(std::move(work));
        // Started on first use, so a program that never autosaves has no extra thread.
        if (!thread_.joinable()) thread_ = std::thread([this] { run(); });
    }
    wake_.notify_one();
}

void SerialQueue::sync(std::function<void()> work) {
    std::promise<void> done;
    async([&] {
        work();
        done.set_value();
    });
    done.get_future().wait();
}

void SerialQueue::run() {
    std::unique_lock guard(lock_);
    for (;;) {
        wake_.wait(guard, [&] { return stopping_ || !work_.empty(); });
        if (work_.empty()) return;
        auto next = std::move(work_.front());
        work_.pop_front();
        guard.unlock();
        next();
        guard.lock();
    }
}

} // namespace korv
