#ifndef ZQUEUE_H
#define ZQUEUE_H

#include <cstdint>
#include <deque>
#include <mutex>

// A transport event, posted to an optional event queue.
struct ZEvent {
    uint32_t type;
    uint32_t param1;
    uint32_t param2;
    uint32_t param3;
};

// A small thread-safe FIFO.
template <class T>
class ZQueue {
public:
    void push(const T& value) {
        std::lock_guard<std::mutex> lock(mutex);
        items.push_back(value);
    }
    // 1 and the oldest value when there is one, else 0.
    int pop(T& value) {
        std::lock_guard<std::mutex> lock(mutex);
        if (items.empty())
            return 0;
        value = items.front();
        items.pop_front();
        return 1;
    }
    int number() const {
        std::lock_guard<std::mutex> lock(mutex);
        return int(items.size());
    }

private:
    mutable std::mutex mutex;
    std::deque<T> items;
};

#endif
