// The one result type of the library, and the texts of its codes.
#pragma once

#include <cstdint>
#include <string>

namespace Morvu {

// A code of morvu/status_codes.h; a negative value carries an operating-system error.
// A constant number is a code by itself, one that is computed has to say so.
class [[nodiscard]] StatusCode {
 public:
  consteval StatusCode(std::int32_t value) : value_(value) {}
  static constexpr StatusCode FromValue(std::int32_t value) {
    return StatusCode(value, Computed{});
  }
  // -errno, whichever sign the number has.
  static constexpr StatusCode FromSystemError(std::int32_t error) {
    return FromValue(error < 0 ? error : -error);
  }

  constexpr std::int32_t Value() const { return value_; }
  constexpr bool IsSystemError() const { return value_ < 0; }

  friend constexpr bool operator==(StatusCode, StatusCode) = default;
  friend constexpr bool operator==(StatusCode code, std::int32_t value) {
    return code.value_ == value;
  }
  friend auto& operator<<(auto& stream, StatusCode code) { return stream << code.value_; }

 private:
  struct Computed {};
  constexpr StatusCode(std::int32_t value, Computed) : value_(value) {}

  std::int32_t value_;
};

// The text of a code for a person. Every number has one.
std::string GetStatusText(StatusCode code);

}  // namespace Morvu
