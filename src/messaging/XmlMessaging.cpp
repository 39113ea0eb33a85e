#include "messaging/XmlMessaging.h"

#include <algorithm>
#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>
#include <cstdint>
#include <cstring>
#include <sstream>

#include "frame/Text.h"

namespace Morvu::XmlMessaging {
namespace {

using Tree = boost::property_tree::ptree;
namespace xml = boost::property_tree::xml_parser;

constexpr std::string_view kAttributes = "<xmlattr>";

// The deepest message nests six elements; the reader recurses once for each.
constexpr int kDeepestNesting = 64;

// Walks over a text as the reader reads it, without recursion, to learn whether any
// element stands deeper than the reader can follow. Its idea of names, quotes and
// closing tags must be the reader's own, or a text could hide its depth: a quote inside
// a name is a part of the name, and a closing tag closes whatever is open.
class NestingScan {
 public:
  explicit NestingScan(std::string_view text) : text_(text.substr(0, text.find('\0'))) {}

  // False for a text that is too deep or does not parse.
  bool IsWithinLimit() {
    while (at_ < text_.size()) {
      if (!SkipTo("<")) return true;
      if (text_[at_] == '/') {
        if (!SkipTo(">")) return false;
        if (depth_ > 0) --depth_;
      } else if (text_[at_] == '?') {
        ++at_;
        if (!SkipTo("?>")) return false;
      } else if (text_[at_] == '!') {
        if (!SkipMarkup()) return false;
      } else if (!SkipOpeningTag()) {
        return false;
      }
    }
    return true;
  }

 private:
  bool Is(char c) const { return at_ < text_.size() && text_[at_] == c; }
  bool IsOneOf(std::string_view characters) const {
    return at_ < text_.size() && characters.find(text_[at_]) != characters.npos;
  }

  // Goes past the next `end`; always leaves a character to look at behind a "<".
  bool SkipTo(std::string_view end) {
    const auto found = text_.find(end, at_);
    if (found == text_.npos) return false;
    at_ = found + end.size();
    return end != "<" || at_ < text_.size();
  }

  void SkipAll(std::string_view characters) {
    at_ = std::min(text_.find_first_not_of(characters, at_), text_.size());
  }
  void SkipUntilOneOf(std::string_view characters) {
    at_ = std::min(text_.find_first_of(characters, at_), text_.size());
  }

  bool SkipMarkup() {
    for (const auto& [begin, end] : {std::pair{"!--", "-->"}, std::pair{"![CDATA[", "]]>"}}) {
      if (!text_.substr(at_).starts_with(begin)) continue;
      at_ += std::strlen(begin);
      return SkipTo(end);
    }
    constexpr std::string_view kDocumentType = "!DOCTYPE";
    if (!text_.substr(at_).starts_with(kDocumentType)) return false;
    at_ += kDocumentType.size();
    return SkipDocumentType();
  }

  // Up to the ">" behind the declarations, which stand in brackets. The reader skips it too.
  bool SkipDocumentType() {
    if (!IsOneOf(kBlanks)) return false;
    for (int brackets = 0; at_ < text_.size(); ++at_) {
      if (Is('[')) ++brackets;
      if (Is(']') && brackets > 0) --brackets;
      if (Is('>') && brackets == 0) {
        ++at_;
        return true;
      }
    }
    return false;
  }

  bool SkipOpeningTag() {
    SkipUntilOneOf(" \n\r\t/>?");
    SkipAll(kBlanks);
    while (at_ < text_.size() && !Is('>') && !Is('/')) {
      if (!SkipAttribute()) return false;
    }
    if (Is('/')) {
      ++at_;
      return Is('>');
    }
    ++depth_;
    return Is('>') && depth_ <= kDeepestNesting;
  }

  bool SkipAttribute() {
    const auto name = at_;
    SkipUntilOneOf(" \n\r\t/<>=?!");
    if (at_ == name) return false;
    SkipAll(kBlanks);
    if (!Is('=')) return false;
    ++at_;
    SkipAll(kBlanks);
    if (!Is('"') && !Is('\'')) return false;
    const char quote = text_[at_++];
    if (!SkipTo(std::string_view(&quote, 1))) return false;
    SkipAll(kBlanks);
    return true;
  }

  static constexpr std::string_view kBlanks = " \n\r\t";

  std::string_view text_;
  std::size_t at_ = 0;
  int depth_ = 0;
};

// A row of the well-formed UTF-8 byte sequences (Unicode 15, table 3-7): what the first
// two bytes may be; those behind them are 80h to BFh.
struct Utf8Row {
  std::uint8_t firstLow, firstHigh, secondLow, secondHigh;
  std::size_t length;
};

// clang-format off
constexpr Utf8Row kUtf8Rows[] = {
    {0x00, 0x7F, 0x00, 0x00, 1},
    {0xC2, 0xDF, 0x80, 0xBF, 2},
    {0xE0, 0xE0, 0xA0, 0xBF, 3},  // none that is too long
    {0xE1, 0xEC, 0x80, 0xBF, 3},
    {0xED, 0xED, 0x80, 0x9F, 3},  // no surrogates
    {0xEE, 0xEF, 0x80, 0xBF, 3},
    {0xF0, 0xF0, 0x90, 0xBF, 4},
    {0xF1, 0xF3, 0x80, 0xBF, 4},
    {0xF4, 0xF4, 0x80, 0x8F, 4},  // none above 10FFFFh
};
// clang-format on

// The length of the UTF-8 sequence at the front of the text; 0 when it is none.
std::size_t Utf8Length(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
  const auto row = std::ranges::find_if(
      kUtf8Rows, [&](const Utf8Row& r) { return byte(0) >= r.firstLow && byte(0) <= r.firstHigh; });
  if (row == std::end(kUtf8Rows) || row->length > text.size()) return 0;
  if (row->length > 1 && (byte(1) < row->secondLow || byte(1) > row->secondHigh)) return 0;
  for (std::size_t i = 2; i < row->length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  return row->length;
}

// Whether XML 1.0 has a place for the character at the front (production 2, Char): not
// for most control characters, nor for FFFEh and FFFFh.
bool IsXmlCharacter(std::string_view text) {
  const auto lead = static_cast<std::uint8_t>(text[0]);
  if (lead < 0x20) return lead == '\t' || lead == '\n' || lead == '\r';
  return !text.starts_with("\xEF\xBF\xBE") && !text.starts_with("\xEF\xBF\xBF");
}

// What a drive or a host put into its strings must not make a reply unreadable.
std::string WithoutForbiddenBytes(std::string_view text) {
  std::string clean;
  clean.reserve(text.size());
  while (!text.empty()) {
    const auto length = Utf8Length(text);
    const auto character = text.substr(0, std::max<std::size_t>(length, 1));
    clean += length != 0 && IsXmlCharacter(text) ? character : "?";
    text.remove_prefix(character.size());
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

using Skipped = std::vector<SkippedPart>;

void ReadAttributes(const Tree& node, Element& element, Skipped& skipped) {
  const Tree* attributes = FindChild(node, kAttributes);
  if (attributes == nullptr) return;
  for (const auto& [key, value] : *attributes) {
    if (element.GetAttributes().contains(key)) {
      skipped.push_back({"attribute '" + key + "' of " + element.GetName() + ", twice", {}});
    }
    element.SetAttribute(key, value.data());
  }
}

// Notes a child that found no place.
bool Skip(const Tree::value_type& child, const Element& parent, Skipped& skipped) {
  if (child.first == kAttributes) return false;
  SkippedPart part{"element '" + child.first + "' of " + parent.GetName(), {}};
  if (const auto* attributes = FindChild(child.second, kAttributes)) {
    if (const auto* name = FindChild(*attributes, "name")) part.name = name->data();
  }
  skipped.push_back(std::move(part));
  return false;
}

// Without the blanks around it. Those inside stay: Boost's own trimming makes one of several, and
// so of one drive's serial number another's.
std::string TextOf(const Tree& node) { return Trim(node.data()); }

void NoteText(const Tree& node, const Element& element, Skipped& skipped) {
  if (!TextOf(node).empty()) skipped.push_back({"text of " + element.GetName(), {}});
}

template <typename Child>
std::unique_ptr<Child> Read(const Tree& node, Skipped& skipped);

template <typename Child>
bool ReadInto(std::string_view wanted, const Tree::value_type& child,
              std::vector<std::unique_ptr<Child>>& children, Skipped& skipped) {
  if (child.first != wanted) return false;
  children.push_back(Read<Child>(child.second, skipped));
  return true;
}

template <>
std::unique_ptr<Property> Read<Property>(const Tree& node, Skipped& skipped) {
  auto property = std::make_unique<Property>();
  ReadAttributes(node, *property, skipped);
  property->value = TextOf(node);
  for (const auto& child : node) Skip(child, *property, skipped);
  return property;
}

template <>
std::unique_ptr<Object> Read<Object>(const Tree& node, Skipped& skipped);

template <>
std::unique_ptr<List> Read<List>(const Tree& node, Skipped& skipped) {
  auto list = std::make_unique<List>();
  ReadAttributes(node, *list, skipped);
  NoteText(node, *list, skipped);
  for (const auto& child : node) {
    ReadInto("Object", child, list->objects, skipped) || Skip(child, *list, skipped);
  }
  return list;
}

template <>
std::unique_ptr<Object> Read<Object>(const Tree& node, Skipped& skipped) {
  auto object = std::make_unique<Object>();
  ReadAttributes(node, *object, skipped);
  NoteText(node, *object, skipped);
  for (const auto& child : node) {
    ReadInto("Property", child, object->properties, skipped) ||
        ReadInto("List", child, object->lists, skipped) ||
        ReadInto("Object", child, object->objects, skipped) || Skip(child, *object, skipped);
  }
  return object;
}

template <>
std::unique_ptr<Subject> Read<Subject>(const Tree& node, Skipped& skipped) {
  auto subject = std::make_unique<Subject>();
  ReadAttributes(node, *subject, skipped);
  NoteText(node, *subject, skipped);
  for (const auto& child : node) {
    ReadInto("Property", child, subject->properties, skipped) ||
        ReadInto("Object", child, subject->objects, skipped) ||
        ReadInto("List", child, subject->lists, skipped) || Skip(child, *subject, skipped);
  }
  return subject;
}

template <>
std::unique_ptr<Message> Read<Message>(const Tree& node, Skipped& skipped) {
  auto message = std::make_unique<Message>();
  ReadAttributes(node, *message, skipped);
  NoteText(node, *message, skipped);
  for (const auto& child : node) {
    ReadInto("Property", child, message->properties, skipped) ||
        ReadInto("Subject", child, message->subjects, skipped) ||
        ReadInto("Object", child, message->objects, skipped) ||
        ReadInto("List", child, message->lists, skipped) || Skip(child, *message, skipped);
  }
  return message;
}

template <typename Child>
void Append(std::vector<Element*>& elements, const std::vector<std::unique_ptr<Child>>& children) {
  for (const auto& child : children) elements.push_back(child.get());
}

bool ReadTree(std::string_view text, Tree& tree) {
  if (!NestingScan(text).IsWithinLimit()) return false;
  try {
    std::istringstream in{std::string(text)};
    xml::read_xml(in, tree, xml::no_comments);
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

template <typename Root>
std::unique_ptr<Root> ParseAs(std::string_view tag, std::string_view text, Skipped& skipped) {
  Tree tree;
  if (!ReadTree(text, tree)) return nullptr;
  const auto root = std::ranges::find(tree, tag, &Tree::value_type::first);
  return root == tree.end() ? nullptr : Read<Root>(root->second, skipped);
}

template <typename Root>
std::unique_ptr<Root> ParseAs(std::string_view tag, std::string_view text) {
  Skipped unheeded;
  return ParseAs<Root>(tag, text, unheeded);
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
  static const auto& kAbsent = *new std::string;  // jobs use it while the process ends
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
  Skipped skipped;
  auto message = ParseAs<Message>("Message", text, skipped);
  if (message) message->skipped = std::move(skipped);
  return message;
}

std::string Message::ToText() const { return ToDocument(*this); }

std::unique_ptr<Object> Object::Parse(std::string_view text) {
  Tree tree;
  if (!ReadTree(text, tree)) return nullptr;
  const auto first =
      std::ranges::find_if(tree, [](const auto& node) { return node.first != "<xmlcomment>"; });
  if (first == tree.end() || first->first != "Object") return nullptr;
  Skipped skipped;
  return Read<Object>(first->second, skipped);
}

std::string Object::ToText() const { return ToDocument(*this); }

const std::string& RoutingName(const Message& message) {
  for (const auto* key : {"subject", "cimClass"}) {
    if (const auto& name = message.GetAttribute(key); !name.empty()) return name;
  }
  return message.GetAttribute("cimMethod");
}

}  // namespace Morvu::XmlMessaging
