// schema/names.xsd is made from what the library says of itself. To write it anew:
//
//   MORVU_UPDATE_GOLDEN=1 build/x86_64/tests/library_tests --gtest_filter='Schema*'
#include <gtest/gtest.h>

#include <boost/property_tree/xml_parser.hpp>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>

#include "Host.h"

namespace MorvuHost {
namespace {

using Names = std::set<std::string>;

// The attribute of all elements of this tag directly in the element.
void Collect(const Reply::Tree& element, std::string_view tag, std::string_view attribute,
             Names& names) {
  for (const auto& [childTag, child] : element) {
    const auto name = AttributeText(child, attribute);
    if (childTag == tag && !name.empty()) names.insert(name);
  }
}

std::string Enumeration(const char* type, const Names& names) {
  EXPECT_FALSE(names.empty()) << type;
  auto text = "  <xs:simpleType name=\"" + std::string(type) +
              "\">\n    <xs:restriction base=\"xs:string\">\n";
  for (const auto& name : names) text += "      <xs:enumeration value=\"" + name + "\"/>\n";
  return text + "    </xs:restriction>\n  </xs:simpleType>\n";
}

std::string NamesSchema() {
  Names classes, properties, switches, methods, parameters, jobProperties;
  const auto reply = Host().Call("<Message subject='supported functionality'/>");
  std::istringstream in(reply.Text());
  Reply::Tree tree;
  boost::property_tree::read_xml(in, tree);
  const auto& message = tree.get_child("Message");
  Collect(message, "Subject", "cimClass", classes);
  for (const auto& [tag, subject] : message) {
    if (tag != "Subject") continue;
    const auto name = AttributeText(subject, "cimClass");
    const bool isDrives = name == "MorvuSSD" || name == "Device";
    Collect(subject, "Property", "name", isDrives ? properties : switches);
    Collect(subject, "Object", "name", methods);
    for (const auto& [inner, object] : subject) {
      if (inner == "Object") Collect(object, "Property", "name", parameters);
      if (inner == "List") Collect(object.get_child("Object"), "Property", "name", jobProperties);
    }
  }
  auto subjects = classes;
  subjects.insert("supported functionality");
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<!-- The names in the library's messages, as it tells them itself.\n"
         "     This file is made by a test: tests/library/SchemaTest.cpp. -->\n"
         "<xs:schema xmlns:xs=\"http://www.w3.org/2001/XMLSchema\">\n" +
         Enumeration("SubjectName", subjects) + Enumeration("ClassName", classes) +
         Enumeration("PropertyName", properties) + Enumeration("SwitchName", switches) +
         Enumeration("MethodName", methods) + Enumeration("ParameterName", parameters) +
         Enumeration("JobPropertyName", jobProperties) + "</xs:schema>\n";
}

TEST(Schema, HasTheNamesThatTheLibraryTells) {
  const std::string path = MORVU_SCHEMA_FOLDER "/names.xsd";
  const auto expected = NamesSchema();
  if (std::getenv("MORVU_UPDATE_GOLDEN") != nullptr) {
    std::ofstream(path) << expected;
    GTEST_SKIP() << "wrote " << path;
  }
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  EXPECT_EQ(expected, text.str()) << "see the head of this test for how to write it anew";
}

}  // namespace
}  // namespace MorvuHost
