// The documents of many command lines, which one process validates.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace Morvu::Testing {

class JsonDocuments {
 public:
  void Add(std::string_view name, std::string_view document) {
    text_ += (text_.empty() ? "[" : ",") + ("[\"" + std::string(name) + "\",") +
             std::string(document) + "]";
  }

  void ExpectValid() const {
    const auto path = ::testing::TempDir() + "documents-" + std::to_string(getpid()) + ".json";
    std::ofstream(path, std::ios::binary) << text_ << "]";
    const auto command = "python3 " MORVU_JSON_VALIDATOR " " MORVU_JSON_SCHEMA " '" + path + "'";
    EXPECT_EQ(std::system(command.c_str()), 0) << command;
    if (!::testing::Test::HasFailure()) std::filesystem::remove(path);
  }

 private:
  std::string text_;
};

}  // namespace Morvu::Testing
