// Saving at the prompt: the file, and the lines that tell a person of it.
#pragma once

#include <string>

#include "frame/Bytes.h"

namespace Morvu {

class ResultTable;

struct SavedFile {
  bool isSaved;
  std::string told;  // one line or two

  // What a person is told of a file; `error` is an errno, 0 for none.
  static SavedFile Describe(const std::string& path, int error);
};

SavedFile SaveTableAs(const ResultTable& table, const std::string& path);  // as CSV
SavedFile SaveBinaryAs(ByteView bytes, const std::string& path);           // as they are

}  // namespace Morvu
