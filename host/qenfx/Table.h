#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Database.h"

namespace QENFx::Data::Collection {

/// A query's rows: all texts in one buffer, the cells beside it.
struct Table::Content {
    explicit Content(std::vector<std::string> columns);

    /// Cells are added row by row, in column order.
    void AddNull();
    /// `number` is 0 where the cell is no number.
    void AddCell(std::string_view text, double number);

    void Reset() { next_ = 0; }
    bool MoveNext();
    const Row* Current() const;

    struct Cell {
        std::size_t text;  // where the text begins in texts_; kNull for NULL
        double number;
    };

    class MemoryRow final : public Row {
    public:
        MemoryRow(const Content& table, std::size_t firstCell) : table_(table), firstCell_(firstCell) {}

        /// Null for an unknown column and for NULL.
        const Cell* Find(const char* column) const;
        const char* Text(const Cell& cell) const { return table_.texts_.c_str() + cell.text; }

    private:
        const Content& table_;
        const std::size_t firstCell_;
    };

private:
    static constexpr std::size_t kNull = SIZE_MAX;

    void Add(Cell cell);

    struct Column {
        std::uint32_t hash;  // of the name, without regard to case
        std::string name;
    };

    std::vector<Column> columns_;
    std::vector<Cell> cells_;
    std::string texts_;  // each text with its terminating zero
    std::deque<MemoryRow> rows_;
    std::size_t next_ = 0;  // one behind the cursor
};

}  // namespace QENFx::Data::Collection
