#pragma once
// Per-thread working buffers for tile rendering. Rendering a tile needs a few
// 1 MiB float buffers; each thread keeps the ones it has used, so steady-state
// rendering allocates nothing.
#include <cstdint>

namespace korv {

class WorkBuffer {
public:
    WorkBuffer();
    ~WorkBuffer();
    WorkBuffer(const WorkBuffer&) = delete;
    WorkBuffer& operator=(const WorkBuffer&) = delete;
    float* get() const { return data_; }

private:
    float* data_;
};

// Same for the 262144 bytes of one rendered tile.
class ByteTileBuffer {
public:
    ByteTileBuffer();
    ~ByteTileBuffer();
    ByteTileBuffer(const ByteTileBuffer&) = delete;
    ByteTileBuffer& operator=(const ByteTileBuffer&) = delete;
    uint8_t* get() const { return data_; }

private:
    uint8_t* data_;
};

} // namespace korv
