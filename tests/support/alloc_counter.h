#pragma once
// Counts heap allocations made through operator new and malloc-free C++
// paths. Link imu_alloc_counter to replace the global operator new.

#include <cstdint>

namespace imu::test {

// Allocations made by operator new since the program started.
std::uint64_t allocation_count() noexcept;

// Counts the allocations made while it lives.
class NoAllocScope {
public:
    NoAllocScope() : start_(allocation_count()) {}
    std::uint64_t allocations() const { return allocation_count() - start_; }

private:
    std::uint64_t start_;
};

}  // namespace imu::test
