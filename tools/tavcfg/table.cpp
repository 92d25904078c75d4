#include "table.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

#include "terminal.h"

namespace tavcfg {

namespace {

const std::string &CellText(const std::vector<std::string> &cells, size_t row) {
    static const std::string absent = "-";
    return row < cells.size() && !cells[row].empty() ? cells[row] : absent;
}

}  // namespace

size_t Table::AddColumn(const std::string &heading, bool alignsRight) {
    columns_.push_back({heading, alignsRight, {}});
    return columns_.size() - 1;
}

void Table::AddRow() {
    ++rows_;
}

void Table::Set(size_t column, std::string_view text) {
    columns_[column].cells.resize(rows_);
    columns_[column].cells.back() = Printable(text);
}

void Table::Print() const {
    std::vector<size_t> widths;
    for (const Column &column : columns_) {
        size_t width = WidthOf(column.heading);
        for (size_t row = 0; row < rows_; ++row) {
            width = std::max(width, WidthOf(CellText(column.cells, row)));
        }
        widths.push_back(width);
    }
    const auto lineOf = [&](auto textOf) {
        std::string line;
        for (size_t i = 0; i < columns_.size(); ++i) {
            const std::string &text = textOf(columns_[i]);
            const std::string padding(widths[i] - WidthOf(text), ' ');
            line += "  " + (columns_[i].alignsRight ? padding + text : text + padding);
        }
        line.erase(line.find_last_not_of(' ') + 1);
        return line;
    };
    const std::string headings = lineOf([](const Column &column) -> const std::string & { return column.heading; });
    fmt::print("{}\n", Paint(Look::kHeading, headings));
    for (size_t row = 0; row < rows_; ++row) {
        fmt::print("{}\n",
                   lineOf([&](const Column &column) -> const std::string & { return CellText(column.cells, row); }));
    }
}

}  // namespace tavcfg
