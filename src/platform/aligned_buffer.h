#pragma once
// Zeroed, 64-byte aligned arrays for the block arithmetic of the sample generator: the
// blocks are read a millisecond at a time by vector loops, so they start on a cache line.

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

namespace vorel::platform {

template <typename T>
class AlignedBuffer {
 public:
  static constexpr std::size_t kAlignment = 64;

  AlignedBuffer() = default;
  explicit AlignedBuffer(std::size_t count) { Allocate(count); }
  ~AlignedBuffer() { Free(); }
  AlignedBuffer(const AlignedBuffer&) = delete;
  AlignedBuffer& operator=(const AlignedBuffer&) = delete;
  AlignedBuffer(AlignedBuffer&& o) noexcept : data_(o.data_), size_(o.size_) {
    o.data_ = nullptr;
    o.size_ = 0;
  }
  AlignedBuffer& operator=(AlignedBuffer&& o) noexcept {
    if (this != &o) {
      Free();
      data_ = o.data_;
      size_ = o.size_;
      o.data_ = nullptr;
      o.size_ = 0;
    }
    return *this;
  }

  // Replaces the contents with `count` zeroed elements (a spare cache line is added at
  // the end so that vector loads just past the last element stay inside the allocation).
  void Allocate(std::size_t count) {
    Free();
    if (count == 0) return;
    std::size_t bytes = (count * sizeof(T) + kAlignment - 1) / kAlignment * kAlignment + kAlignment;
    data_ = static_cast<T*>(std::aligned_alloc(kAlignment, bytes));
    if (!data_) throw std::bad_alloc();
    std::memset(static_cast<void*>(data_), 0, bytes);
    size_ = count;
  }
  void Free() {
    std::free(data_);
    data_ = nullptr;
    size_ = 0;
  }
  void Zero() {
    if (data_) std::memset(static_cast<void*>(data_), 0, size_ * sizeof(T));
  }

  T* data() { return data_; }
  const T* data() const { return data_; }
  std::size_t size() const { return size_; }
  T& operator[](std::size_t i) { return data_[i]; }
  const T& operator[](std::size_t i) const { return data_[i]; }

 private:
  T* data_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace vorel::platform
