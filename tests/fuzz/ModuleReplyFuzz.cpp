// What a firmware module may answer: any text as its mapping. What is read of it can be
// written and read again, and stays the same.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "frame/Text.h"
#include "operations/firmware/AttributeCollection.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace Morvu;
  const auto read = ReadAttributeCollection({reinterpret_cast<const char*>(data), size});
  if (!read) return 0;
  read->GetUnsigned(FirmwareMapping::Status);
  read->GetString(FirmwareMapping::Destination);
  if (Split(read->GetString(FirmwareMapping::Package), '~').empty()) __builtin_trap();

  // The first writing may replace bytes that XML has no place for, and so give two
  // attributes one name; the first reading joins those. Then all is settled.
  const auto joined = ReadAttributeCollection(WriteAttributeCollection(*read));
  if (!joined) __builtin_trap();
  const auto written = WriteAttributeCollection(*joined);
  const auto again = ReadAttributeCollection(written);
  if (!again || WriteAttributeCollection(*again) != written) __builtin_trap();
  return 0;
}
