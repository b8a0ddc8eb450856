#include "engine/render/WorkBuffers.h"

#include "engine/core/Constants.h"

#include <cstdlib>
#include <new>
#include <vector>

namespace korv {

namespace {
template <size_t Bytes>
struct Pool {
    std::vector<void*> free;
    ~Pool() {
        for (void* p : free) std::free(p);
    }
    void* take() {
        if (!free.empty()) {
            void* p = free.back();
            free.pop_back();
            return p;
        }
        void* p = std::aligned_alloc(64, Bytes);
        if (!p) throw std::bad_alloc();
        return p;
    }
    void give(void* p) { free.push_back(p); }
};

constexpr size_t kFloatBytes = size_t(kTilePixels) * 4 * sizeof(float);
thread_local Pool<kFloatBytes> floatPool;
thread_local Pool<size_t(kTileBytes)> bytePool;
} // namespace

WorkBuffer::WorkBuffer() : data_(static_cast<float*>(floatPool.take())) {}
WorkBuffer::~WorkBuffer() { floatPool.give(data_); }
ByteTileBuffer::ByteTileBuffer() : data_(static_cast<uint8_t*>(bytePool.take())) {}
ByteTileBuffer::~ByteTileBuffer() { bytePool.give(data_); }

} // namespace korv
