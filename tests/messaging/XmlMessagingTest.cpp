// The message tree: reading, writing, finding.
#include <gtest/gtest.h>

#include "messaging/XmlMessaging.h"

namespace Morvu::XmlMessaging {
namespace {

constexpr std::string_view kDeclaration = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";

std::string RoundTrip(std::string_view text) {
  const auto message = Message::Parse(text);
  if (!message) return "null";
  const auto written = message->ToText();
  EXPECT_TRUE(written.starts_with(kDeclaration));
  return written.substr(kDeclaration.size());
}

struct Case {
  std::string_view read;
  std::string_view written;
};

const Case kCases[] = {
    {"", "null"},
    {"<?xml version='1.0'?>", "null"},
    {"<Foo/>", "null"},
    {"<Message", "null"},
    {"<Message><Object></Message>", "null"},
    {"<!DOCTYPE Message><Message/>", "<Message/>"},
    {"<!DOCTYPE Message [<!ENTITY a '>[x]'>]><Message b='&a;'/>", "<Message b=\"&amp;a;\"/>"},
    {"<!DOCTYPE Message [<Message/>", "null"},
    {"<!DOCTYPES><Message/>", "null"},
    {"<!ELEMENT a><Message/>", "null"},
    {"<Message/>", "<Message/>"},
    {"<Message></Message>", "<Message/>"},
    {"<Foo/><Message a='1'/><Message b='2'/>", "<Message a=\"1\"/>"},
    // Attributes by name, children by kind, in each kind by their order.
    {"<Message z='1' a='2'><List/><Object n='1'/><Subject/><Property>t</Property><Object n='2'/>"
     "</Message>",
     "<Message a=\"2\" z=\"1\"><Property>t</Property><Subject/><Object n=\"1\"/><Object n=\"2\"/>"
     "<List/></Message>"},
    {"<Message><Object><Object/><List/><Property/></Object></Message>",
     "<Message><Object><Property/><List/><Object/></Object></Message>"},
    {"<Message><Subject><List/><Object/><Property/></Subject></Message>",
     "<Message><Subject><Property/><Object/><List/></Subject></Message>"},
    // What a parent cannot hold goes with all that is in it.
    {"<Message><Bar><Object/></Bar><Object/></Message>", "<Message><Object/></Message>"},
    {"<Message><List><Property>x</Property><List/><Object/></List></Message>",
     "<Message><List><Object/></List></Message>"},
    {"<Message><Property>a<Object/></Property></Message>",
     "<Message><Property>a</Property></Message>"},
    {"<Message><Object><Subject/></Object></Message>", "<Message><Object/></Message>"},
    {"<Message><!-- <Object/> --><Property>  two  words </Property></Message>",
     "<Message><Property>two  words</Property></Message>"},
    {"<Message a='&lt;&gt;&amp;&quot;'><Property>&lt;&gt;&amp;\"</Property></Message>",
     "<Message a=\"&lt;&gt;&amp;&quot;\"><Property>&lt;&gt;&amp;&quot;</Property></Message>"},
    {"<Message a='x/>y'><Property><![CDATA[<Object>]]></Property></Message>",
     "<Message a=\"x/&gt;y\"><Property>&lt;Object&gt;</Property></Message>"},
    {"<Message><Object\n\tn = \"1\" /></Message>", "<Message><Object n=\"1\"/></Message>"},
};
TEST(Reading, KeepsWhatTheWireHolds) {
  for (const auto& row : kCases) {
    EXPECT_EQ(row.written, RoundTrip(row.read));
  }
}

// ---- Depth: what the reader would recurse into is refused before it ----

std::string Nested(int depth, std::string_view open = "<a>", std::string_view close = "</a>") {
  std::string text = "<Message>";
  for (int i = 0; i < depth; ++i) text += open;
  for (int i = 0; i < depth; ++i) text += close;
  return text + "</Message>";
}

TEST(Depth, IsBoundedHoweverItIsHidden) {
  constexpr int kDeep = 100'000;
  EXPECT_NE(nullptr, Message::Parse(Nested(60)));
  EXPECT_EQ(nullptr, Message::Parse(Nested(kDeep)));
  // A quote in a name opens nothing; a slash or a bracket in a value ends nothing.
  EXPECT_EQ(nullptr, Message::Parse(Nested(kDeep, "<a'>")));
  EXPECT_EQ(nullptr, Message::Parse(Nested(kDeep, "<a b='/>'>")));
  EXPECT_EQ(nullptr, Message::Parse(Nested(kDeep, "<a b=\"</a>\">")));
  EXPECT_EQ(nullptr, Message::Parse(Nested(kDeep, "<a b'=\"\">")));
  // Comments and instructions whose end is not where it seems.
  EXPECT_EQ(nullptr, Message::Parse(Nested(kDeep, "<a><!--></a>-->")));
  EXPECT_EQ(nullptr, Message::Parse(Nested(kDeep, "<a><?></a>?>")));
  EXPECT_EQ(nullptr, Message::Parse(Nested(kDeep, "<a><![CDATA[</a>]]>")));
  EXPECT_EQ(nullptr, Message::Parse(Nested(kDeep, "<a>", "")));
  // A document type whose end is behind its brackets.
  EXPECT_EQ(nullptr, Message::Parse(Nested(kDeep, "<a><!DOCTYPE b [>]</a>[]>")));
}

TEST(Depth, IsNotWhatStandsSideBySide) {
  std::string text = "<Message>";
  for (int i = 0; i < 50'000; ++i) text += "<Object b='>'/><Object></Object>";
  const auto message = Message::Parse(text + "</Message>");
  ASSERT_NE(nullptr, message);
  EXPECT_EQ(100'000u, message->objects.size());
}

// ---- Elements ----

TEST(Elements, ReadAnEmptyAttributeAsAnAbsentOne) {
  const auto message = Message::Parse("<Message a=''/>");
  EXPECT_EQ("", message->GetAttribute("a"));
  EXPECT_EQ("", message->GetAttribute("b"));
  message->SetAttribute("a", "1");
  EXPECT_EQ("1", message->GetAttribute("a"));
  message->RemoveAttribute("a");
  message->RemoveAttribute("a");
  EXPECT_EQ("<Message/>", message->ToText().substr(kDeclaration.size()));
}

TEST(Elements, AreFoundToADepth) {
  const auto message = Message::Parse(
      "<Message><Property name='p'/><Object type='method' name='m1'/>"
      "<Subject><Object type='method' name='m2'><Property name='q'/></Object></Subject>"
      "<List><Object type='method' name='m3'/></List></Message>");
  const auto find = [&](auto... arguments) {
    std::string names;
    for (const auto* element : message->Find(arguments...)) {
      names += element->GetName() + ":" + element->GetAttribute("name") + " ";
    }
    return names;
  };
  EXPECT_EQ("", find("", "", "", -1));
  EXPECT_EQ("Message: Property:p ", find("", "", "", 0));
  EXPECT_EQ("Object:m1 ", find("Object", "type", "method", 1));
  EXPECT_EQ("Object:m2 Object:m1 Object:m3 ", find("Object", "type", "method", 2));
  EXPECT_EQ("Property:q Property:p ", find("Property", "", "", 2));
}

TEST(Elements, AreClonedAsTheWireHasThem) {
  const auto message = Message::Parse(
      "<Message a='1'><Property name='p'>v</Property><Subject><Object/></Subject>"
      "<Object><List/></Object><List><Object/></List></Message>");
  const auto clone = message->Clone();
  EXPECT_EQ(message->ToText(), dynamic_cast<Message&>(*clone).ToText());
}

TEST(Elements, WriteOnlyWhatAReaderTakes) {
  Message message;
  message.SetAttribute("a", "bell\a");
  message.properties.push_back(std::make_unique<Property>("n", "tab\t \xC3\xA4 \xFF \xC3"));
  const auto read = Message::Parse(message.ToText());
  ASSERT_NE(nullptr, read);
  EXPECT_EQ("bell?", read->GetAttribute("a"));
  EXPECT_EQ("tab\t \xC3\xA4 ? ?", read->properties.at(0)->value);
}

TEST(Elements, WriteWellFormedUtf8) {
  const std::pair<std::string_view, std::string_view> texts[] = {
      {"\x7F \xC2\x80 \xE0\xA0\x80 \xED\x9F\xBF \xEE\x80\x80 \xEF\xBF\xBD", ""},
      {"\xF0\x90\x80\x80 \xF4\x8F\xBF\xBF", ""},
      {"a\xC0\x80z", "a??z"},            // U+0000, too long
      {"a\xC1\xBFz", "a??z"},            // U+007F, too long
      {"a\xE0\x9F\xBFz", "a???z"},       // U+07FF, too long
      {"a\xF0\x8F\xBF\xBFz", "a????z"},  // U+FFFF, too long
      {"a\xED\xA0\x80z", "a???z"},       // a surrogate
      {"a\xED\xBF\xBFz", "a???z"},       // the last of them
      {"a\xF4\x90\x80\x80z", "a????z"},  // behind the last character
      {"a\xF8\x88\x80\x80\x80z", "a?????z"},
      {"a\xEF\xBF\xBEz", "a?z"},  // U+FFFE has no place in XML
      {"a\xEF\xBF\xBFz", "a?z"},
      {"a\xE2\x82", "a??"},  // cut off
      {"a\xE2\x82z", "a??z"},
  };
  for (const auto& [text, written] : texts) {
    Message message;
    message.SetAttribute("a", text);
    const auto read = Message::Parse(message.ToText());
    ASSERT_NE(nullptr, read);
    EXPECT_EQ(written.empty() ? text : written, read->GetAttribute("a"));
  }
}

}  // namespace
}  // namespace Morvu::XmlMessaging
