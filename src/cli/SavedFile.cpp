#include "cli/SavedFile.h"

#include <cerrno>

#include "frame/Files.h"
#include "messaging/ResultTable.h"

namespace Morvu {

SavedFile SavedFile::Describe(const std::string& path, int error) {
  if (error == 0) return {true, "Successfully saved data to: " + path};
  return {false, "Failed to save data to: " + path + "\nReason: " + DescribeFileError(error)};
}

SavedFile SaveTableAs(const ResultTable& table, const std::string& path) {
  return SavedFile::Describe(path, table.SaveSeparated(path) ? 0 : errno);
}

SavedFile SaveBinaryAs(ByteView bytes, const std::string& path) {
  if (SaveBinary(path, bytes, false)) {
    return {true, "Successfully saved binary data to: " + path};
  }
  return {false, "Error: Failed to save binary file. Did you provide a valid filename?\nReason: " +
                     DescribeFileError(errno)};
}

}  // namespace Morvu
