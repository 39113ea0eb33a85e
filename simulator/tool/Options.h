// The arguments of one command of the tool: words, and --name value pairs.
#pragma once

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Simdrives {

// The user asked for something that the tool does not understand.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The tool understood, and it could not be done.
struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

class Options {
 public:
  // `flags` take no value; `values` take one; anything else that begins with
  // "--" is a usage error.
  Options(const std::vector<std::string>& arguments, const std::vector<std::string_view>& flags,
          const std::vector<std::string_view>& values);

  const std::vector<std::string>& Words() const { return words_; }
  // The words of a command by position, at least `least` and at most `most`.
  void NeedWords(std::size_t least, std::size_t most, std::string_view form) const;

  bool Has(const std::string& name) const { return values_.contains(name); }
  std::string Text(const std::string& name, std::string fallback = {}) const;
  std::uint64_t Number(const std::string& name, std::uint64_t fallback) const;
  std::uint8_t HexByte(const std::string& name) const;

 private:
  std::vector<std::string> words_;
  std::map<std::string, std::string> values_;
};

// Decimal or 0x hexadecimal, whole, at most `most`.
std::uint64_t ToNumber(const std::string& text, std::uint64_t most, std::string_view what);
// A number with K, M, G or T behind it, powers of 1024.
std::uint64_t ToBytes(const std::string& text);
// Two hexadecimal digits, with or without 0x.
std::uint8_t ToHexByte(const std::string& text);

}  // namespace Simdrives
