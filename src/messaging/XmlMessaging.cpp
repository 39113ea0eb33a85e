#include "messaging/XmlMessaging.h"

#include <algorithm>
#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>
#include <sstream>

namespace Morvu::XmlMessaging {
namespace {

using Tree = boost::property_tree::ptree;
namespace xml = boost::property_tree::xml_parser;

constexpr std::string_view kAttributes = "<xmlattr>";

// The deepest message nests six elements; the reader recurses once for each.
constexpr int kDeepestNesting = 64;

// Whether no element stands deeper than the reader can follow. A scan of the text
// before it is read: a closing tag ends a level, a self-closing one begins none, and
// what stands in comments, CDATA, declarations and quotes does not count.
bool NestsWithinLimit(std::string_view text) {
  const auto skipPast = [&](std::size_t at, std::string_view end) {
    const auto found = text.find(end, at);
    return found == text.npos ? text.size() : found + end.size();
  };
  int depth = 0;
  for (std::size_t at = text.find('<'); at < text.size(); at = text.find('<', at)) {
    const auto rest = text.substr(at);
    if (rest.starts_with("<!--")) {
      at = skipPast(at + 4, "-->");
    } else if (rest.starts_with("<![CDATA[")) {
      at = skipPast(at + 9, "]]>");
    } else if (rest.starts_with("<?")) {
      at = skipPast(at + 2, "?>");
    } else if (rest.starts_with("<!")) {
      return false;  // a document type, whose brackets this scan does not follow
    } else if (rest.starts_with("</")) {
      depth = std::max(depth - 1, 0);
      at += 2;
    } else {
      // The end of the tag is the first ">" outside quotes.
      char quote = 0;
      std::size_t end = at + 1;
      for (; end < text.size() && (quote != 0 || text[end] != '>'); ++end) {
        if (quote != 0) {
          if (text[end] == quote) quote = 0;
        } else if (text[end] == '"' || text[end] == '\'') {
          quote = text[end];
        }
      }
      if (end >= text.size() || text[end - 1] != '/') ++depth;
      if (depth > kDeepestNesting) return false;
      at = end;
    }
  }
  return true;
}

// XML 1.0 has no place for control characters, and a text of ours is UTF-8: what a
// drive put into its strings must not make a reply unreadable.
std::string WithoutForbiddenBytes(std::string_view text) {
  std::string clean(text);
  for (std::size_t i = 0; i < clean.size();) {
    const auto lead = static_cast<unsigned char>(clean[i]);
    const std::size_t length = lead < 0x80       ? 1
                               : lead >> 5 == 6  ? 2
                               : lead >> 4 == 14 ? 3
                               : lead >> 3 == 30 ? 4
                                                 : 0;
    bool valid = length != 0 && i + length <= clean.size();
    for (std::size_t k = 1; valid && k < length; ++k) {
      valid = (static_cast<unsigned char>(clean[i + k]) & 0xC0) == 0x80;
    }
    if (length == 1) valid = lead >= 0x20 || lead == '\t' || lead == '\n' || lead == '\r';
    if (!valid) clean[i] = '?';
    i += valid ? length : 1;
  }
  return clean;
}

// A child under exactly this name; a "." in it does not make a path.
Tree& AddChild(Tree& parent, std::string_view name) {
  return parent.push_back({std::string(name), Tree()})->second;
}

const Tree* FindChild(const Tree& parent, std::string_view name) {
  const auto found = parent.find(std::string(name));
  return found == parent.not_found() ? nullptr : &found->second;
}

Tree& WriteElement(const Element& element, Tree& parent) {
  Tree& node = AddChild(parent, element.GetName());
  if (element.GetAttributes().empty()) return node;
  Tree& attributes = AddChild(node, kAttributes);
  for (const auto& [key, value] : element.GetAttributes()) {
    AddChild(attributes, key).data() = WithoutForbiddenBytes(value);
  }
  return node;
}

// ---- Writing: the order of the kinds is that of the wire ----

void Write(const Property& property, Tree& parent);
void Write(const List& list, Tree& parent);
void Write(const Object& object, Tree& parent);
void Write(const Subject& subject, Tree& parent);

template <typename Child>
void WriteAll(const std::vector<std::unique_ptr<Child>>& children, Tree& node) {
  for (const auto& child : children) Write(*child, node);
}

void Write(const Property& property, Tree& parent) {
  WriteElement(property, parent).data() = WithoutForbiddenBytes(property.value);
}

void Write(const List& list, Tree& parent) {
  Tree& node = WriteElement(list, parent);
  WriteAll(list.objects, node);
}

void Write(const Object& object, Tree& parent) {
  Tree& node = WriteElement(object, parent);
  WriteAll(object.properties, node);
  WriteAll(object.lists, node);
  WriteAll(object.objects, node);
}

void Write(const Subject& subject, Tree& parent) {
  Tree& node = WriteElement(subject, parent);
  WriteAll(subject.properties, node);
  WriteAll(subject.objects, node);
  WriteAll(subject.lists, node);
}

void Write(const Message& message, Tree& parent) {
  Tree& node = WriteElement(message, parent);
  WriteAll(message.properties, node);
  WriteAll(message.subjects, node);
  WriteAll(message.objects, node);
  WriteAll(message.lists, node);
}

// ---- Reading: a tag that the parent cannot hold is skipped with its subtree ----

void ReadAttributes(const Tree& node, Element& element) {
  const Tree* attributes = FindChild(node, kAttributes);
  if (attributes == nullptr) return;
  for (const auto& [key, value] : *attributes) element.SetAttribute(key, value.data());
}

template <typename Child>
std::unique_ptr<Child> Read(const Tree& node);

template <typename Child>
bool ReadInto(std::string_view wanted, const Tree::value_type& child,
              std::vector<std::unique_ptr<Child>>& children) {
  if (child.first != wanted) return false;
  children.push_back(Read<Child>(child.second));
  return true;
}

template <>
std::unique_ptr<Property> Read<Property>(const Tree& node) {
  auto property = std::make_unique<Property>();
  ReadAttributes(node, *property);
  property->value = node.data();
  return property;
}

template <>
std::unique_ptr<Object> Read<Object>(const Tree& node);

template <>
std::unique_ptr<List> Read<List>(const Tree& node) {
  auto list = std::make_unique<List>();
  ReadAttributes(node, *list);
  for (const auto& child : node) ReadInto("Object", child, list->objects);
  return list;
}

template <>
std::unique_ptr<Object> Read<Object>(const Tree& node) {
  auto object = std::make_unique<Object>();
  ReadAttributes(node, *object);
  for (const auto& child : node) {
    ReadInto("Property", child, object->properties) || ReadInto("List", child, object->lists) ||
        ReadInto("Object", child, object->objects);
  }
  return object;
}

template <>
std::unique_ptr<Subject> Read<Subject>(const Tree& node) {
  auto subject = std::make_unique<Subject>();
  ReadAttributes(node, *subject);
  for (const auto& child : node) {
    ReadInto("Property", child, subject->properties) ||
        ReadInto("Object", child, subject->objects) || ReadInto("List", child, subject->lists);
  }
  return subject;
}

template <>
std::unique_ptr<Message> Read<Message>(const Tree& node) {
  auto message = std::make_unique<Message>();
  ReadAttributes(node, *message);
  for (const auto& child : node) {
    ReadInto("Property", child, message->properties) ||
        ReadInto("Subject", child, message->subjects) ||
        ReadInto("Object", child, message->objects) || ReadInto("List", child, message->lists);
  }
  return message;
}

template <typename Child>
void Append(std::vector<Element*>& elements, const std::vector<std::unique_ptr<Child>>& children) {
  for (const auto& child : children) elements.push_back(child.get());
}

bool ReadTree(std::string_view text, Tree& tree) {
  if (!NestsWithinLimit(text)) return false;
  try {
    std::istringstream in{std::string(text)};
    xml::read_xml(in, tree, xml::trim_whitespace);
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

template <typename Root>
std::unique_ptr<Root> ParseAs(std::string_view tag, std::string_view text) {
  Tree tree;
  if (!ReadTree(text, tree)) return nullptr;
  const auto root = std::ranges::find(tree, tag, &Tree::value_type::first);
  return root == tree.end() ? nullptr : Read<Root>(root->second);
}

template <typename Root>
std::string ToDocument(const Root& root) {
  Tree tree;
  Write(root, tree);
  std::ostringstream out;
  xml::write_xml(out, tree, xml::xml_writer_make_settings<std::string>(' ', 0, "utf-8"));
  return std::move(out).str();
}

}  // namespace

const std::string& Element::GetAttribute(std::string_view key) const {
  static const std::string kAbsent;
  const auto found = attributes_.find(key);
  return found == attributes_.end() ? kAbsent : found->second;
}

void Element::SetAttribute(std::string_view key, std::string_view value) {
  attributes_.insert_or_assign(std::string(key), std::string(value));
}

void Element::RemoveAttribute(std::string_view key) {
  const auto found = attributes_.find(key);
  if (found != attributes_.end()) attributes_.erase(found);
}

bool Element::Matches(std::string_view tag, std::string_view key, std::string_view value) const {
  return (tag.empty() || tag == name_) && (key.empty() || GetAttribute(key) == value);
}

std::vector<Element*> Element::Find(std::string_view tag, std::string_view attributeKey,
                                    std::string_view attributeValue, int depth) {
  std::vector<Element*> found;
  Collect(found, tag, attributeKey, attributeValue, depth);
  return found;
}

void Element::Collect(std::vector<Element*>& found, std::string_view tag, std::string_view key,
                      std::string_view value, int depth) {
  if (depth < 0) return;
  if (Matches(tag, key, value)) found.push_back(this);
  std::vector<Element*> children;
  AppendChildren(children);
  for (Element* child : children) child->Collect(found, tag, key, value, depth - 1);
}

// A property has no children, and so no depth to run out of.
void Property::Collect(std::vector<Element*>& found, std::string_view tag, std::string_view key,
                       std::string_view wanted, int) {
  if (Matches(tag, key, wanted)) found.push_back(this);
}

void List::AppendChildren(std::vector<Element*>& children) const { Append(children, objects); }

void Object::AppendChildren(std::vector<Element*>& children) const {
  Append(children, objects);
  Append(children, lists);
  Append(children, properties);
}

void Subject::AppendChildren(std::vector<Element*>& children) const {
  Append(children, objects);
  Append(children, lists);
  Append(children, properties);
}

void Message::AppendChildren(std::vector<Element*>& children) const {
  Append(children, subjects);
  Append(children, objects);
  Append(children, lists);
  Append(children, properties);
}

Property& Object::AddProperty(std::unique_ptr<Property> property) {
  properties.push_back(std::move(property));
  return *properties.back();
}

Property& Object::AddProperty(std::string_view name, std::string_view text) {
  return AddProperty(std::make_unique<Property>(name, text));
}

std::unique_ptr<Element> Property::Clone() const {
  return ParseAs<Property>(GetName(), ToDocument(*this));
}
std::unique_ptr<Element> List::Clone() const { return ParseAs<List>(GetName(), ToDocument(*this)); }
std::unique_ptr<Element> Object::Clone() const {
  return ParseAs<Object>(GetName(), ToDocument(*this));
}
std::unique_ptr<Element> Subject::Clone() const {
  return ParseAs<Subject>(GetName(), ToDocument(*this));
}
std::unique_ptr<Element> Message::Clone() const {
  return ParseAs<Message>(GetName(), ToDocument(*this));
}

std::unique_ptr<Message> Message::Parse(std::string_view text) {
  return ParseAs<Message>("Message", text);
}

std::string Message::ToText() const { return ToDocument(*this); }

std::unique_ptr<Object> Object::Parse(std::string_view text) {
  return ParseAs<Object>("Object", text);
}

std::string Object::ToText() const { return ToDocument(*this); }

const std::string& RoutingName(const Message& message) {
  for (const auto* key : {"subject", "cimClass"}) {
    if (const auto& name = message.GetAttribute(key); !name.empty()) return name;
  }
  return message.GetAttribute("cimMethod");
}

}  // namespace Morvu::XmlMessaging
