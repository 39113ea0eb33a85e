#include "Outline.h"

#include <gtest/gtest.h>

#include <boost/property_tree/xml_parser.hpp>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>

namespace MorvuHost {

MessageTree ParseMessage(const std::string& text) {
  std::istringstream in(text);
  MessageTree tree;
  boost::property_tree::read_xml(in, tree, boost::property_tree::xml_parser::trim_whitespace);
  const auto message = tree.get_child_optional("Message");
  EXPECT_TRUE(message) << text;
  return message ? *message : MessageTree();
}

std::string Outline(const std::string& tag, const MessageTree& element, int depth) {
  std::string lines = std::string(static_cast<std::size_t>(depth) * 2, ' ') + tag;
  std::map<std::string, std::string> attributes;
  if (const auto found = element.get_child_optional("<xmlattr>")) {
    for (const auto& [name, value] : *found) attributes[name] = value.data();
  }
  for (const auto& [name, value] : attributes) lines += " " + name + "=\"" + value + "\"";
  if (!element.data().empty()) lines += ": " + element.data();
  lines += "\n";
  for (const auto& [child, subtree] : element) {
    if (child != "<xmlattr>") lines += Outline(child, subtree, depth + 1);
  }
  return lines;
}

std::string ReadGolden(const std::string& name) {
  std::ostringstream text;
  text << std::ifstream(MORVU_LIBRARY_GOLDEN "/" + name).rdbuf();
  return text.str();
}

void ExpectGolden(const std::string& name, const std::string& text) {
  if (std::getenv("MORVU_UPDATE_GOLDEN") != nullptr) {
    std::ofstream(MORVU_LIBRARY_GOLDEN "/" + name) << text;
  }
  EXPECT_EQ(ReadGolden(name), text);
}

}  // namespace MorvuHost
