// The table of text that a Parser fills, with its text forms and its XML forms.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Morvu {

namespace XmlMessaging {
class List;
}

class ResultTable {
 public:
  struct Cell {
    std::string text;
    bool isKey = false;
  };
  struct Row {
    bool isHeader = false;
    bool isGroup = false;  // a rule stands behind this row
    std::vector<Cell> cells;
  };

  void AppendRow(const std::vector<std::string>& cells, bool isHeader = false,
                 bool isGroup = false);
  // The rows of another table, behind those that are here.
  void Append(const ResultTable& other);
  // One row a line, cut at `separator`. With `headerFirst` the lines at the front
  // that hold an apostrophe are header rows, without their apostrophes.
  void AppendText(std::string_view text, std::string_view separator, bool headerFirst);

  // Wraps the column at `width` visible characters; no word is ever cut.
  void SetColumnWidth(std::size_t column, std::int64_t width);
  // Marks the column whose text makes a row's key; a number past the last does nothing.
  void SetKeyColumn(std::size_t column);

  const std::vector<Row>& GetRows() const { return rows_; }
  std::vector<const Row*> GetDataRows() const;
  std::vector<const Row*> GetHeaderRows() const;
  std::size_t GetColumnCount() const { return columnCount_; }

  std::string ToText(bool indented = false, bool framed = true) const;
  std::string Render() const { return ToText(); }
  // One line a row, each of all columns; the cells of header rows stand in apostrophes. A data
  // cell that holds the separator, a quote or a line's end stands in quotes (RFC 4180).
  std::string ToSeparated(std::string_view separator = ",", bool includeHeaders = true) const;
  // Without colour marks. False when the file cannot be written; errno tells why.
  [[nodiscard]] bool SaveText(const std::string& path, bool indented = false, bool append = false,
                              bool framed = true) const;
  [[nodiscard]] bool SaveSeparated(const std::string& path, std::string_view separator = ",",
                                   bool append = false, bool includeHeaders = true) const;
  void Clear();

  // The table as a List of type "properties" when asked for and possible, else of
  // type "table". `serialNumber` goes into the rows' keys.
  std::unique_ptr<XmlMessaging::List> ToXml(bool asProperties, std::string_view serialNumber) const;

 private:
  ResultTable WithoutColours() const;
  // The width that each column's cells are laid out in.
  std::vector<std::int64_t> GetCellWidths() const;

  std::vector<Row> rows_;
  std::map<std::size_t, std::int64_t> widths_;
  std::size_t columnCount_ = 0;
};

}  // namespace Morvu
