#include "qenfx/Table.h"

#include <sqlite3.h>

#include <algorithm>
#include <numeric>

namespace Host {

MemoryTable::MemoryTable(std::vector<std::string> columns) : columns_(std::move(columns)), byName_(columns_.size()) {
    std::iota(byName_.begin(), byName_.end(), std::size_t{0});
    // Stable, so that of two columns of one name the first is found.
    std::stable_sort(byName_.begin(), byName_.end(), [this](std::size_t left, std::size_t right) {
        return sqlite3_stricmp(columns_[left].c_str(), columns_[right].c_str()) < 0;
    });
}

void MemoryTable::AddNull() {
    Add({kNull, 0});
}

void MemoryTable::AddCell(std::string_view text, double number) {
    const std::size_t begin = texts_.size();
    texts_.append(text).push_back('\0');
    Add({begin, number});
}

void MemoryTable::Add(Cell cell) {
    if (cells_.size() % columns_.size() == 0) {
        rows_.emplace_back(*this, cells_.size());
    }
    cells_.push_back(cell);
}

bool MemoryTable::MoveNext() {
    if (next_ <= rows_.size()) {
        ++next_;
    }
    return next_ <= rows_.size();
}

const QENFx::Data::Collection::Row* MemoryTable::getCurrent() const {
    return next_ == 0 || next_ > rows_.size() ? nullptr : &rows_[next_ - 1];
}

const MemoryTable::Cell* MemoryTable::MemoryRow::Find(const char* column) const {
    const auto& columns = table_.columns_;
    const auto found = std::lower_bound(
        table_.byName_.begin(), table_.byName_.end(), column,
        [&](std::size_t index, const char* name) { return sqlite3_stricmp(columns[index].c_str(), name) < 0; });
    if (found == table_.byName_.end() || sqlite3_stricmp(columns[*found].c_str(), column) != 0) {
        return nullptr;
    }
    const Cell& cell = table_.cells_[firstCell_ + *found];
    return cell.text == kNull ? nullptr : &cell;
}

const char* MemoryTable::MemoryRow::getString(const char* column) const {
    const Cell* cell = Find(column);
    return cell == nullptr ? "" : table_.texts_.c_str() + cell->text;
}

double MemoryTable::MemoryRow::getDouble(const char* column) const {
    const Cell* cell = Find(column);
    return cell == nullptr ? 0 : cell->number;
}

}  // namespace Host
