#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

#include "frame/Files.h"
#include "messaging/ResultTable.h"
#include "messaging/XmlMessaging.h"

namespace Morvu {
namespace {

ResultTable FromText(std::string_view text, bool headerFirst = true) {
  ResultTable table;
  table.AppendText(text, "~", headerFirst);
  return table;
}

TEST(ResultTable, ReadsText) {
  const auto table = FromText("'A'~'B'\n1~2\n'late'~3\n");
  ASSERT_EQ(1u, table.GetHeaderRows().size());
  EXPECT_EQ("A", table.GetHeaderRows()[0]->cells[0].text);
  ASSERT_EQ(2u, table.GetDataRows().size());
  EXPECT_EQ("2", table.GetDataRows()[0]->cells[1].text);
  EXPECT_EQ("'late'", table.GetDataRows()[1]->cells[0].text);
  EXPECT_TRUE(FromText("").GetRows().empty());
}

struct Rendering {
  std::string_view what;
  ResultTable table;
  bool indented, framed;
  std::string text;
};

ResultTable WithWidth(ResultTable table, std::size_t column, std::int64_t width) {
  table.SetColumnWidth(column, width);
  return table;
}

ResultTable Grouped() {
  ResultTable table;
  table.AppendRow({"ID", "Value"}, true);
  table.AppendRow({"05", "12"}, false, true);
  table.AppendRow({"", "detail"});
  return table;
}

TEST(Rendered, AsText) {
  const Rendering kRows[] = {
      {"header and row without a frame", FromText("'A'~'Long'\n1~2"), false, false,
       "A  Long\n"
       "-------\n"
       "1  2   "},
      {"frame", FromText("'A'~'Long'\n1~2"), false, true,
       "------------\n"
       "| A | Long |\n"
       "------------\n"
       "| 1 | 2    |\n"
       "------------"},
      {"indented", FromText("'A'\n1"), true, true,
       "   -----\n"
       "   | A |\n"
       "   -----\n"
       "   | 1 |\n"
       "   -----"},
      {"groups, underlined behind the first column", Grouped(), false, true,
       "---------------\n"
       "| ID | Value  |\n"
       "---------------\n"
       "| 05 | 12     |\n"
       "    -----------\n"
       "|    | detail |\n"
       "---------------"},
      {"ragged", FromText("a~b~c\nd", false), false, true,
       "-------------\n"
       "| a | b | c |\n"
       "| d |   |   |\n"
       "-------------"},
      // A fixed width wraps and never cuts a word.
      {"wrapped", WithWidth(FromText("one two three~x", false), 0, 7), false, false,
       "one two  x\n"
       "three     "},
      {"longer word than the width",
       WithWidth(FromText("incompressible a b\nshort words here", false), 0, 10), false, false,
       "incompressible\n"
       "a b           \n"
       "short words   \n"
       "here          "},
      {"marks take no width", FromText("<c:RED>ab</c>~x\nabc~y", false), false, false,
       "<c:RED>ab</c>   x\n"
       "abc  y"},
      {"marks without a blank part no word",
       WithWidth(FromText("ab<c:RED>cd</c>ef <c:RED>g</c>h", false), 0, 2), false, false,
       "ab<c:RED>cd</c>ef\n"
       "<c:RED>g</c>h    "},
      {"blank rows", FromText("\n\n\nx", false), false, false,
       " \n"
       " \n"
       " \n"
       "x"},
      {"nothing but blank rows", FromText("''\n\n\n\n"), false, false, "\n\n\n\n"},
      {"colour of wrapped words", WithWidth(FromText("<c:RED>ab cd</c>", false), 0, 2), false,
       false,
       "<c:RED>ab</c>\n"
       "<c:RED>cd</c>"},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.what);
    EXPECT_EQ(row.text, row.table.ToText(row.indented, row.framed));
  }
}

TEST(ResultTable, SeparatesCells) {
  ResultTable table;
  table.AppendRow({"1", "2"});
  table.AppendRow({"A", "B"}, true);
  EXPECT_EQ("'A','B'\n1,2", table.ToSeparated());
  EXPECT_EQ("1;2", table.ToSeparated(";", false));
}

// As RFC 4180 writes them, each with all columns.
TEST(ResultTable, SeparatesCellsThatHoldTheSeparator) {
  ResultTable table;
  table.AppendRow({"a,b", "say \"x\"", "1"});
  table.AppendRow({"two\nlines"});
  EXPECT_EQ("\"a,b\",\"say \"\"x\"\"\",1\n\"two\nlines\",,", table.ToSeparated());
  EXPECT_EQ("a,b;\"say \"\"x\"\"\";1\n\"two\nlines\";;", table.ToSeparated(";"));
}

// A mark without an end must not reach into the next cell.
TEST(ResultTable, SavesEachCellWithoutItsColours) {
  const auto path = testing::TempDir() + "table" + std::to_string(getpid());
  const auto table = FromText("<c:RED>a~b</c>~<c:RED>c</c>", false);
  ASSERT_TRUE(table.SaveSeparated(path));
  EXPECT_EQ("<c:RED>a,b</c>,c\n", ReadFileText(path));
  ASSERT_TRUE(table.SaveText(path, false, false, false));
  EXPECT_EQ("<c:RED>a  b</c>  c\n", ReadFileText(path));
  std::remove(path.c_str());
}

std::string AsXml(const ResultTable& table, bool asProperties) {
  XmlMessaging::Object object;
  object.lists.push_back(table.ToXml(asProperties, "SN"));
  const auto text = object.ToText();
  const auto begin = text.find("<List");
  return text.substr(begin, text.rfind("</Object>") - begin);
}

TEST(ResultTable, GivesProperties) {
  EXPECT_EQ(
      R"(<List type="properties"><Object><Property name="a">1</Property></Object>)"
      R"(<Object name="S"><Property name="b">2</Property><Property name="c">3</Property></Object>)"
      R"(<Object name="S T"><Property name="d">4</Property></Object></List>)",
      AsXml(FromText("a~1\nS~b~2\n~c~3\nT~d~4", false), true));
}

TEST(ResultTable, GivesRowsWithKeys) {
  auto table = FromText("'ID'~'Raw'\n05~1");
  table.AppendRow({"06", "2", "surplus", "fourth"});
  table.SetKeyColumn(0);
  table.SetKeyColumn(9);
  const auto text = AsXml(table, true);  // four cells are no property
  EXPECT_EQ(0u, text.find(R"(<List type="table"><Object key="SN.05" row="0">)"
                          R"(<Property column="0" name="ID" row="0">05</Property>)"
                          R"(<Property column="1" name="Raw" row="0">1</Property>)"))
      << text;
  EXPECT_NE(std::string::npos, text.find(R"(<Object key="SN.06" row="1">)")) << text;
  EXPECT_EQ(R"(<List type="table"><Object key="SN" row="0">)"
            R"(<Property column="0" row="0">x</Property></Object></List>)",
            AsXml(FromText("x"), false));
}

}  // namespace
}  // namespace Morvu
