// A message's elements as lines: tag, attributes by name, and text.
#pragma once

#include <boost/property_tree/ptree.hpp>
#include <string>

namespace MorvuHost {

using MessageTree = boost::property_tree::ptree;

// The document's root element; fails the test when there is none.
MessageTree ParseMessage(const std::string& text);

// The element of this tag and all below it, two blanks deeper each:
//   List direction="o" name="Partition"
//     Object direction="io" name="Partition"
//       Property name="Path": /dev/sda1
std::string Outline(const std::string& tag, const MessageTree& element, int depth = 0);

// Compares with the file of this name in the folder golden/. The environment variable
// MORVU_UPDATE_GOLDEN writes the file anew: read the difference before you keep it.
void ExpectGolden(const std::string& name, const std::string& text);
std::string ReadGolden(const std::string& name);

}  // namespace MorvuHost
