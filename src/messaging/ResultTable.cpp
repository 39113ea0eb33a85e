#include "messaging/ResultTable.h"

#include <algorithm>
#include <utility>

#include "frame/Files.h"
#include "frame/Text.h"
#include "messaging/XmlMessaging.h"

namespace Morvu {
namespace {

constexpr std::int64_t kNoWidth = -1;

// In characters: the bytes that go on with one of UTF-8 are none of their own.
std::int64_t CountCharacters(std::string_view text) {
  return std::ranges::count_if(
      text, [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; });
}

std::int64_t VisibleLength(std::string_view text) {
  const bool hasMarks = text.find('<') != text.npos;
  return hasMarks ? CountCharacters(StripMarkup(text)) : CountCharacters(text);
}

std::vector<std::string> SplitAt(std::string_view text, std::string_view separator) {
  std::vector<std::string> pieces;
  for (std::size_t at = 0;;) {
    const auto end = separator.empty() ? text.npos : text.find(separator, at);
    pieces.emplace_back(text.substr(at, end == text.npos ? end : end - at));
    if (end == text.npos) return pieces;
    at = end + separator.size();
  }
}

// A word's characters: without blanks, and without control characters.
std::string CleanWord(std::string_view word) {
  std::string clean;
  for (const char c : word) {
    if (static_cast<unsigned char>(c) >= 32 && c != 127) clean += c;
  }
  return clean;
}

// The words of a text. A stretch of a word that is coloured bears marks of its own; a
// mark without a blank beside it parts no word.
std::vector<std::string> Words(std::string_view text) {
  std::vector<std::string> words;
  std::string word;
  const auto endWord = [&] {
    if (!word.empty()) words.push_back(std::exchange(word, {}));
  };
  for (const auto& [colour, stretch] : SplitStretches(text)) {
    const auto pieces = Split(stretch, ' ');
    for (std::size_t i = 0; i < pieces.size(); ++i) {
      if (i != 0) endWord();
      const auto piece = CleanWord(pieces[i]);
      if (piece.empty()) continue;
      word += colour.empty() ? piece : "<c:" + std::string(colour) + ">" + piece + "</c>";
    }
  }
  endWord();
  return words;
}

std::string PadTo(std::string line, std::int64_t width) {
  const auto missing = width - VisibleLength(line);
  if (missing > 0) line.append(static_cast<std::size_t>(missing), ' ');
  return line;
}

// The display lines of a cell, each padded to `width`.
std::vector<std::string> Wrap(const std::string& text, std::int64_t width) {
  if (width == kNoWidth) return {text};
  std::vector<std::string> lines;
  std::string line;
  for (const auto& word : Words(text)) {
    if (line.empty()) {
      line = word;
    } else if (VisibleLength(line) + 1 + VisibleLength(word) > width) {
      lines.push_back(PadTo(std::move(line), width));
      line = word;
    } else {
      line += " " + word;
    }
  }
  lines.push_back(PadTo(std::move(line), width));
  return lines;
}

std::int64_t LongestWord(const std::string& text) {
  std::int64_t longest = 0;
  for (const auto& word : Words(text)) longest = std::max(longest, VisibleLength(word));
  return longest;
}

// Renders the rows of one table and keeps the widths that its rules need.
class Renderer {
 public:
  Renderer(std::vector<std::int64_t> widths, bool indented, bool framed)
      : widths_(std::move(widths)), indented_(indented), separator_(framed ? "|" : "") {}

  std::string Render(const ResultTable::Row& row) {
    std::vector<std::vector<std::string>> cells;
    std::size_t height = 1;
    for (std::size_t column = 0; column < widths_.size(); ++column) {
      const auto text = column < row.cells.size() ? row.cells[column].text : std::string();
      cells.push_back(Wrap(text, widths_[column]));
      height = std::max(height, cells.back().size());
    }
    std::string lines;
    for (std::size_t i = 0; i < height; ++i) {
      if (i != 0) lines += '\n';
      lines += DisplayLine(cells, i);
    }
    return lines;
  }

  std::int64_t GetLineWidth() const { return lineWidth_; }
  std::int64_t GetTailWidth() const { return tailWidth_; }

 private:
  std::string DisplayLine(const std::vector<std::vector<std::string>>& cells, std::size_t index) {
    std::string line;
    if (indented_) {
      line = "   " + separator_ + " ";
    } else if (!separator_.empty()) {
      line = separator_ + " ";
    }
    std::string tail;
    for (std::size_t column = 0; column < cells.size(); ++column) {
      auto& target = column == 0 ? line : tail;
      target += index < cells[column].size() ? cells[column][index] : PadTo({}, widths_[column]);
      if (column + 1 < cells.size()) tail += " " + separator_ + " ";
    }
    if (!separator_.empty()) tail += " " + separator_;
    line += tail;
    lineWidth_ = std::max(lineWidth_, VisibleLength(line));
    tailWidth_ = std::max(tailWidth_, VisibleLength(tail));
    return line;
  }

  std::vector<std::int64_t> widths_;
  bool indented_;
  std::string separator_;
  std::int64_t lineWidth_ = 0;
  std::int64_t tailWidth_ = 0;
};

std::string Repeat(char c, std::int64_t count) {
  return std::string(static_cast<std::size_t>(std::max<std::int64_t>(count, 0)), c);
}

std::string QuoteCell(std::string_view text, std::string_view separator) {
  const bool isPlain = text.find_first_of("\"\r\n") == text.npos &&
                       (separator.empty() || text.find(separator) == text.npos);
  if (isPlain) return std::string(text);
  return '"' + ReplaceAll(text, "\"", "\"\"") + '"';
}

std::unique_ptr<XmlMessaging::Property> MakeCell(const std::string& name, const std::string& text) {
  return std::make_unique<XmlMessaging::Property>(name, text);
}

// The rows as named properties, grouped by section rows; null when a row has
// neither two nor three cells.
std::unique_ptr<XmlMessaging::List> ToPropertyList(
    const std::vector<const ResultTable::Row*>& rows) {
  auto list = std::make_unique<XmlMessaging::List>();
  list->SetAttribute("type", "properties");
  std::unique_ptr<XmlMessaging::Object> current;
  std::string sections;
  const auto close = [&] {
    if (current) list->objects.push_back(std::move(current));
  };
  const auto add = [&](const std::string& name, const std::string& text) {
    if (!current) current = std::make_unique<XmlMessaging::Object>();
    current->AddProperty(MakeCell(name, text));
  };
  for (const auto* row : rows) {
    const auto& cells = row->cells;
    if (cells.size() == 2) {
      add(cells[0].text, cells[1].text);
    } else if (cells.size() == 3) {
      if (!cells[0].text.empty()) {
        close();
        sections += (sections.empty() ? "" : " ") + cells[0].text;
        current = std::make_unique<XmlMessaging::Object>();
        current->SetAttribute("name", sections);
      }
      add(cells[1].text, cells[2].text);
    } else {
      return nullptr;
    }
  }
  close();
  return list;
}

}  // namespace

void ResultTable::AppendRow(const std::vector<std::string>& cells, bool isHeader, bool isGroup) {
  Row row{isHeader, isGroup, {}};
  for (const auto& text : cells) row.cells.push_back({text});
  columnCount_ = std::max(columnCount_, cells.size());
  rows_.push_back(std::move(row));
}

void ResultTable::Append(const ResultTable& other) {
  rows_.insert(rows_.end(), other.rows_.begin(), other.rows_.end());
  columnCount_ = std::max(columnCount_, other.columnCount_);
}

void ResultTable::AppendText(std::string_view text, std::string_view separator, bool headerFirst) {
  if (text.empty()) return;
  bool inHeader = headerFirst;
  auto lines = Split(text, '\n');
  if (lines.back().empty()) lines.pop_back();
  for (auto& line : lines) {
    inHeader = inHeader && line.find('\'') != line.npos;
    if (inHeader) std::erase(line, '\'');
    AppendRow(SplitAt(line, separator), inHeader);
  }
}

void ResultTable::SetColumnWidth(std::size_t column, std::int64_t width) {
  widths_[column] = width;
}

void ResultTable::SetKeyColumn(std::size_t column) {
  if (column >= columnCount_) return;
  for (auto& row : rows_) {
    if (row.cells.size() < columnCount_) row.cells.resize(columnCount_);
    row.cells[column].isKey = true;
  }
}

std::vector<const ResultTable::Row*> ResultTable::GetDataRows() const {
  std::vector<const Row*> rows;
  for (const auto& row : rows_) {
    if (!row.isHeader) rows.push_back(&row);
  }
  return rows;
}

std::vector<const ResultTable::Row*> ResultTable::GetHeaderRows() const {
  std::vector<const Row*> rows;
  for (const auto& row : rows_) {
    if (row.isHeader) rows.push_back(&row);
  }
  return rows;
}

std::vector<std::int64_t> ResultTable::GetCellWidths() const {
  std::vector<std::int64_t> widths;
  for (std::size_t column = 0; column < columnCount_; ++column) {
    const auto fixed = widths_.find(column);
    const bool isFixed = fixed != widths_.end() && fixed->second != kNoWidth;
    std::int64_t width = isFixed ? fixed->second : 0;
    for (const auto& row : rows_) {
      if (column >= row.cells.size()) continue;
      const auto& text = row.cells[column].text;
      width = std::max(width, isFixed ? LongestWord(text) : VisibleLength(text));
    }
    widths.push_back(width);
  }
  return widths;
}

std::string ResultTable::ToText(bool indented, bool framed) const {
  Renderer renderer(GetCellWidths(), indented, framed);
  std::vector<std::string> header;
  std::vector<std::vector<std::string>> blocks;
  bool isOpen = false;
  for (const auto& row : rows_) {
    auto text = renderer.Render(row);
    if (row.isHeader) {
      header.push_back(std::move(text));
      continue;
    }
    if (!isOpen) blocks.emplace_back();
    blocks.back().push_back(std::move(text));
    isOpen = !row.isGroup;
  }

  const auto lineWidth = renderer.GetLineWidth() - (indented ? 3 : 0);
  const auto rule = (indented ? "   " : "") + Repeat('-', lineWidth);
  const auto divider =
      Repeat(' ', lineWidth - renderer.GetTailWidth()) + Repeat('-', renderer.GetTailWidth());
  std::string text;
  if (!header.empty()) text += (framed ? rule + "\n" : "") + Join(header, "\n") + "\n";
  if (framed || !header.empty()) text += rule + "\n";
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    text += (i == 0 ? "" : "\n" + divider + "\n") + Join(blocks[i], "\n");
  }
  if (framed) text += "\n" + rule;
  return text;
}

std::string ResultTable::ToSeparated(std::string_view separator, bool includeHeaders) const {
  std::string text;
  const auto append = [&](const std::vector<const Row*>& rows) {
    for (const auto* row : rows) {
      std::vector<std::string> cells;
      for (const auto& cell : row->cells) {
        cells.push_back(row->isHeader ? "'" + cell.text + "'" : QuoteCell(cell.text, separator));
      }
      cells.resize(columnCount_);
      text += Join(cells, separator) + "\n";
    }
  };
  if (includeHeaders) append(GetHeaderRows());
  append(GetDataRows());
  if (!text.empty()) text.pop_back();
  return text;
}

// Cell by cell: over the whole text a mark without an end would reach into the next cell.
ResultTable ResultTable::WithoutColours() const {
  ResultTable plain = *this;
  for (auto& row : plain.rows_) {
    for (auto& cell : row.cells) cell.text = StripMarkup(cell.text);
  }
  return plain;
}

bool ResultTable::SaveText(const std::string& path, bool indented, bool append, bool framed) const {
  return SaveFile(path, WithoutColours().ToText(indented, framed), append);
}

bool ResultTable::SaveSeparated(const std::string& path, std::string_view separator, bool append,
                                bool includeHeaders) const {
  return SaveFile(path, WithoutColours().ToSeparated(separator, includeHeaders), append);
}

void ResultTable::Clear() { *this = ResultTable(); }

std::unique_ptr<XmlMessaging::List> ResultTable::ToXml(bool asProperties,
                                                       std::string_view serialNumber) const {
  const auto dataRows = GetDataRows();
  if (asProperties) {
    if (auto list = ToPropertyList(dataRows)) return list;
  }
  auto list = std::make_unique<XmlMessaging::List>();
  list->SetAttribute("type", "table");
  const auto headerRows = GetHeaderRows();
  const Row* header = headerRows.empty() ? nullptr : headerRows.front();
  for (std::size_t number = 0; number < dataRows.size(); ++number) {
    auto object = std::make_unique<XmlMessaging::Object>();
    object->SetAttribute("row", std::to_string(number));
    object->SetAttribute("key", serialNumber);
    const auto& cells = dataRows[number]->cells;
    for (std::size_t column = 0; column < cells.size(); ++column) {
      auto property = std::make_unique<XmlMessaging::Property>();
      property->SetAttribute("column", std::to_string(column));
      property->SetAttribute("row", std::to_string(number));
      property->value = cells[column].text;
      if (header != nullptr && column < header->cells.size()) {
        property->SetAttribute("name", header->cells[column].text);
        if (header->cells[column].isKey) {
          object->SetAttribute("key", std::string(serialNumber) + "." + cells[column].text);
        }
      }
      object->AddProperty(std::move(property));
    }
    list->objects.push_back(std::move(object));
  }
  return list;
}

}  // namespace Morvu
