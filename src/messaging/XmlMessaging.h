// The message tree: every request and every reply is one XML document, whose root
// is a Message. Only this module touches XML text.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Morvu::XmlMessaging {

class Property;
class List;
class Object;
class Subject;

// Base of the five element kinds. An element owns its children, which stand in
// insertion order within each kind.
class Element {
 public:
  virtual ~Element() = default;
  Element(const Element&) = delete;
  Element& operator=(const Element&) = delete;

  const std::string& GetName() const { return name_; }  // the tag

  // The attribute's value; empty if it is absent.
  const std::string& GetAttribute(std::string_view key) const;
  void SetAttribute(std::string_view key, std::string_view value);
  void RemoveAttribute(std::string_view key);
  const std::map<std::string, std::string, std::less<>>& GetAttributes() const {
    return attributes_;
  }

  // The elements of this subtree, itself first, whose tag is `tag` and whose
  // attribute `attributeKey` is `attributeValue`; an empty `tag` or `attributeKey`
  // matches all. `depth` 0 looks at this element alone (and at its properties).
  // The elements stay owned by the tree.
  std::vector<Element*> Find(std::string_view tag, std::string_view attributeKey,
                             std::string_view attributeValue, int depth);

  // A deep copy by way of the wire form.
  virtual std::unique_ptr<Element> Clone() const = 0;

 protected:
  explicit Element(std::string_view name) : name_(name) {}

  // The children in the order in which Find looks at them.
  virtual void AppendChildren(std::vector<Element*>& children) const = 0;
  bool Matches(std::string_view tag, std::string_view key, std::string_view value) const;

 private:
  virtual void Collect(std::vector<Element*>& found, std::string_view tag, std::string_view key,
                       std::string_view value, int depth);
  friend class Property;

  std::string name_;
  std::map<std::string, std::string, std::less<>> attributes_;
};

class Property : public Element {
 public:
  Property() : Element("Property") {}
  std::unique_ptr<Element> Clone() const override;
  Property(std::string_view name, std::string_view text) : Property() {
    SetAttribute("name", name);
    value = text;
  }

  std::string value;  // the element's text

 private:
  void AppendChildren(std::vector<Element*>&) const override {}
  void Collect(std::vector<Element*>& found, std::string_view tag, std::string_view key,
               std::string_view value, int depth) override;
};

class List : public Element {
 public:
  List() : Element("List") {}
  std::unique_ptr<Element> Clone() const override;
  std::vector<std::unique_ptr<Object>> objects;

 private:
  void AppendChildren(std::vector<Element*>& children) const override;
};

class Object : public Element {
 public:
  Object() : Element("Object") {}
  std::unique_ptr<Element> Clone() const override;
  // A document whose first top-level element is an Object; null if there is none.
  static std::unique_ptr<Object> Parse(std::string_view text);
  std::string ToText() const;

  Property& AddProperty(std::unique_ptr<Property> property);
  // Adds a property with this name and text.
  Property& AddProperty(std::string_view name, std::string_view text);

  std::vector<std::unique_ptr<List>> lists;
  std::vector<std::unique_ptr<Property>> properties;
  std::vector<std::unique_ptr<Object>> objects;

 private:
  void AppendChildren(std::vector<Element*>& children) const override;
};

class Subject : public Element {
 public:
  Subject() : Element("Subject") {}
  std::unique_ptr<Element> Clone() const override;
  std::vector<std::unique_ptr<Object>> objects;
  std::vector<std::unique_ptr<List>> lists;
  std::vector<std::unique_ptr<Property>> properties;

 private:
  void AppendChildren(std::vector<Element*>& children) const override;
};

// A part of a text that has no place in the tree: an element that its parent cannot hold, a
// text where none belongs, an attribute that stands twice.
struct SkippedPart {
  std::string what;  // "element 'object' of Message"
  std::string name;  // an element's attribute of this name
};

class Message : public Element {
 public:
  Message() : Element("Message") {}
  std::unique_ptr<Element> Clone() const override;

  // The message in `text`, or null for a text that does not parse, has no Message
  // root, or nests deeper than any message does.
  static std::unique_ptr<Message> Parse(std::string_view text);
  // The document on one line behind its declaration.
  std::string ToText() const;

  std::vector<std::unique_ptr<Subject>> subjects;
  std::vector<std::unique_ptr<Object>> objects;
  std::vector<std::unique_ptr<List>> lists;
  std::vector<std::unique_ptr<Property>> properties;
  std::vector<SkippedPart> skipped;  // by Parse, in the order of the text

 private:
  void AppendChildren(std::vector<Element*>& children) const override;
};

// The routing name of a request: "subject", else "cimClass", else "cimMethod".
const std::string& RoutingName(const Message& message);

}  // namespace Morvu::XmlMessaging
