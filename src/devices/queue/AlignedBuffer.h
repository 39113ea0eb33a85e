// Memory for transfers past the page cache: it lies as any device wants it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

#include "frame/Bytes.h"

namespace Morvu::DeviceManagement {

class AlignedBuffer {
 public:
  static constexpr std::size_t kAlignment = 4096;

  // Zeros.
  explicit AlignedBuffer(std::size_t size)
      : data_(static_cast<std::uint8_t*>(::operator new (size, std::align_val_t{kAlignment}))),
        size_(size) {
    std::uninitialized_fill_n(data_.get(), size, std::uint8_t{0});
  }

  ByteSpan Get() { return {data_.get(), size_}; }
  static bool IsAligned(const void* data) {
    return reinterpret_cast<std::uintptr_t>(data) % kAlignment == 0;
  }

 private:
  struct Delete {
    void operator()(std::uint8_t* data) const {
      ::operator delete (data, std::align_val_t{kAlignment});
    }
  };
  std::unique_ptr<std::uint8_t, Delete> data_;
  std::size_t size_;
};

}  // namespace Morvu::DeviceManagement
