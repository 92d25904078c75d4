#include "table.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

namespace tavcfg {

namespace {

/** Width of a text on a terminal, as fmt sees it: never more than its bytes, so padding to these shows it. */
size_t WidthOf(const std::string &text) {
    return 2 * text.size() - fmt::formatted_size("{:<{}}", text, text.size());
}

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

void Table::Set(size_t column, std::string text) {
    columns_[column].cells.resize(rows_);
    columns_[column].cells.back() = std::move(text);
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
    const auto printLine = [&](auto textOf) {
        std::string line;
        for (size_t i = 0; i < columns_.size(); ++i) {
            const std::string &text = textOf(columns_[i]);
            line += columns_[i].alignsRight ? fmt::format("  {:>{}}", text, widths[i])
                                            : fmt::format("  {:<{}}", text, widths[i]);
        }
        line.erase(line.find_last_not_of(' ') + 1);
        fmt::print("{}\n", line);
    };
    printLine([](const Column &column) -> const std::string & { return column.heading; });
    for (size_t row = 0; row < rows_; ++row) {
        printLine([&](const Column &column) -> const std::string & { return CellText(column.cells, row); });
    }
}

}  // namespace tavcfg
