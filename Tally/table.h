// A text table for the terminal: a header, body rows (some of them indented details) and a
// totals row, numbers right-aligned. It fits a width in two steps: the shrinkable columns
// are cut with "…" (the rightmost first, never below their minimum), and when that is not
// enough, columns are dropped in their drop order and the fit is tried again. Cells are
// shown as given except control characters, which become "?", so nothing a log holds can
// drive the terminal. A value type; one thread at a time.
#pragma once

#include <string>
#include <vector>

namespace tally {

struct Column {
    std::string header;
    bool rightAligned = true;
    int dropOrder = 0;    // 0: always kept; otherwise 1 is dropped first, then 2, ...
    size_t minWidth = 0;  // above 0: cut with "…" down to this many characters if needed
};

class Table {
  public:
    enum class Style { Body, Detail, Total };

    explicit Table(std::vector<Column> columns) : m_columns(std::move(columns)) {}
    // One cell per column.
    void add(std::vector<std::string> cells, Style style = Style::Body);
    // Every line ends with "\n". `width` 0 is no limit; `colour` adds ANSI styles (bold
    // header and totals, dim details) without changing the layout.
    std::string render(size_t width, bool colour) const;

  private:
    struct Line {
        std::vector<std::string> cells;
        Style style;
    };
    std::vector<Column> m_columns;
    std::vector<Line> m_lines;
};

}  // namespace tally
