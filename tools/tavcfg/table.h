/*
 * Aligned tables on standard output.
 */
#ifndef TAVCFG_TABLE_H
#define TAVCFG_TABLE_H

#include <string>
#include <string_view>
#include <vector>

namespace tavcfg {

/** A table with a heading for each column. */
class Table {
  public:
    /** Adds a column and returns its number. */
    size_t AddColumn(const std::string &heading, bool alignsRight);

    /** Adds an empty row. */
    void AddRow();

    /** Sets a cell of the last row, to a text made printable. A cell that is never set shows as a dash. */
    void Set(size_t column, std::string_view text);

    /** Prints the table, each line indented by two blanks. */
    void Print() const;

  private:
    struct Column {
        std::string heading;
        bool alignsRight;
        std::vector<std::string> cells;  // up to the last one that was set
    };
    std::vector<Column> columns_;
    size_t rows_ = 0;
};

}  // namespace tavcfg

#endif
