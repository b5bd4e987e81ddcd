#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Database.h"

namespace Host {

/// A query's rows: all texts in one buffer, the cells beside it.
class MemoryTable final : public QENFx::Data::Collection::Table {
public:
    explicit MemoryTable(std::vector<std::string> columns);

    /// Cells are added row by row, in column order.
    void AddNull();
    /// `number` is 0 where the cell is no number.
    void AddCell(std::string_view text, double number);

    void Reset() override { next_ = 0; }
    bool MoveNext() override;
    const QENFx::Data::Collection::Row* getCurrent() const override;

private:
    struct Cell {
        std::size_t text;  // where the text begins in texts_; kNull for NULL
        double number;
    };

    class MemoryRow final : public QENFx::Data::Collection::Row {
    public:
        MemoryRow(const MemoryTable& table, std::size_t firstCell) : table_(table), firstCell_(firstCell) {}

        const char* getString(const char* column) const override;
        double getDouble(const char* column) const override;
        bool exists(const char* column) const override { return Find(column) != nullptr; }

    private:
        /// Null for an unknown column and for NULL.
        const Cell* Find(const char* column) const;

        const MemoryTable& table_;
        const std::size_t firstCell_;
    };

    static constexpr std::size_t kNull = SIZE_MAX;

    void Add(Cell cell);

    std::vector<std::string> columns_;
    std::vector<std::size_t> byName_;  // columns in the order of their names
    std::vector<Cell> cells_;
    std::string texts_;  // each text with its terminating zero
    std::deque<MemoryRow> rows_;
    std::size_t next_ = 0;  // one behind the cursor
};

}  // namespace Host
