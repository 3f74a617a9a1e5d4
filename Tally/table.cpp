#include "table.h"

#include "core/text.h"

#include <algorithm>

namespace tally {

using usagekit::Text::characterCount;

namespace {

constexpr size_t kGap = 2;  // blanks between columns

std::string printable(std::string text) {
    for (char& c : text)
        if ((static_cast<unsigned char>(c) < 0x20) || c == 0x7f) c = '?';
    return text;
}

std::string cut(const std::string& text, size_t width) {
    if (characterCount(text) <= width) return text;
    if (width == 0) return "";
    return usagekit::Text::firstCharacters(text, width - 1) + "\u2026";
}

std::string padded(const std::string& text, size_t width, bool right) {
    const size_t fill = width - std::min(width, characterCount(text));
    return right ? std::string(fill, ' ') + text : text + std::string(fill, ' ');
}

}  // namespace

void Table::add(std::vector<std::string> cells, Style style) {
    cells.resize(m_columns.size());
    for (std::string& cell : cells)
        cell = printable(std::move(cell));
    m_lines.push_back({std::move(cells), style});
}

std::string Table::render(size_t width, bool colour) const {
    const size_t count = m_columns.size();
    std::vector<size_t> natural(count);
    for (size_t i = 0; i < count; ++i) {
        natural[i] = characterCount(m_columns[i].header);
        for (const Line& line : m_lines)
            natural[i] = std::max(natural[i], characterCount(line.cells[i]));
    }

    // Columns kept, and their widths: cut shrinkable ones, rightmost first, then drop.
    std::vector<bool> kept(count, true);
    std::vector<size_t> widths = natural;
    size_t total = 0;  // the width of a line
    for (;;) {
        widths = natural;
        total = 0;
        size_t columns = 0;
        for (size_t i = 0; i < count; ++i)
            if (kept[i]) total += widths[i], ++columns;
        total += columns ? (columns - 1) * kGap : 0;
        for (size_t i = count; i-- > 0 && width > 0 && total > width;) {
            if (!kept[i] || m_columns[i].minWidth == 0 || widths[i] <= m_columns[i].minWidth)
                continue;
            const size_t less = std::min(total - width, widths[i] - m_columns[i].minWidth);
            widths[i] -= less;
            total -= less;
        }
        if (width == 0 || total <= width) break;
        int next = 0;  // the lowest drop order still kept
        size_t victim = count;
        for (size_t i = 0; i < count; ++i)
            if (kept[i] && m_columns[i].dropOrder > 0 && (!next || m_columns[i].dropOrder < next))
                next = m_columns[i].dropOrder, victim = i;
        if (victim == count) break;  // nothing left to drop: the lines run over
        kept[victim] = false;
    }

    auto row = [&](auto cellOf) {
        std::string text;
        for (size_t i = 0; i < count; ++i) {
            if (!kept[i]) continue;
            if (!text.empty()) text += std::string(kGap, ' ');
            text += padded(cut(cellOf(i), widths[i]), widths[i], m_columns[i].rightAligned);
        }
        while (!text.empty() && text.back() == ' ')
            text.pop_back();
        return text;
    };
    auto styled = [&](const std::string& text, const char* style) {
        return colour ? std::string("\x1b[") + style + "m" + text + "\x1b[0m\n" : text + "\n";
    };
    std::string rule;
    for (size_t i = 0; i < total; ++i)
        rule += "\u2500";

    std::string out = styled(row([&](size_t i) { return m_columns[i].header; }), "1");
    out += styled(rule, "2");
    for (const Line& line : m_lines) {
        if (line.style == Style::Total) out += styled(rule, "2");
        const std::string text = row([&](size_t i) { return line.cells[i]; });
        out += line.style == Style::Total    ? styled(text, "1")
               : line.style == Style::Detail ? styled(text, "2")
                                             : text + "\n";
    }
    return out;
}

}  // namespace tally
