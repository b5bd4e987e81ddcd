#include "qenfx/Table.h"

#include <sqlite3.h>

#include <algorithm>
#include <numeric>

namespace QENFx::Data::Collection {

Table::Content::Content(std::vector<std::string> columns) : columns_(std::move(columns)), byName_(columns_.size()) {
    std::iota(byName_.begin(), byName_.end(), std::size_t{0});
    // Stable, so that of two columns of one name the first is found.
    std::stable_sort(byName_.begin(), byName_.end(), [this](std::size_t left, std::size_t right) {
        return sqlite3_stricmp(columns_[left].c_str(), columns_[right].c_str()) < 0;
    });
}

void Table::Content::AddNull() {
    Add({kNull, 0});
}

void Table::Content::AddCell(std::string_view text, double number) {
    const std::size_t begin = texts_.size();
    texts_.append(text).push_back('\0');
    Add({begin, number});
}

void Table::Content::Add(Cell cell) {
    if (cells_.size() % columns_.size() == 0) {
        rows_.emplace_back(*this, cells_.size());
    }
    cells_.push_back(cell);
}

bool Table::Content::MoveNext() {
    if (next_ <= rows_.size()) {
        ++next_;
    }
    return next_ <= rows_.size();
}

const Row* Table::Content::Current() const {
    return next_ == 0 || next_ > rows_.size() ? nullptr : &rows_[next_ - 1];
}

const Table::Content::Cell* Table::Content::MemoryRow::Find(const char* column) const {
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

Table::Table(std::unique_ptr<Content> content) : content_(std::move(content)) {}

Table::~Table() = default;

void Table::Reset() {
    content_->Reset();
}

bool Table::MoveNext() {
    return content_->MoveNext();
}

const Row* Table::getCurrent() const {
    return content_->Current();
}

const char* Row::getString(const char* column) const {
    const auto& row = static_cast<const Table::Content::MemoryRow&>(*this);
    const Table::Content::Cell* cell = row.Find(column);
    return cell == nullptr ? "" : row.Text(*cell);
}

double Row::getDouble(const char* column) const {
    const Table::Content::Cell* cell = static_cast<const Table::Content::MemoryRow&>(*this).Find(column);
    return cell == nullptr ? 0 : cell->number;
}

bool Row::exists(const char* column) const {
    return static_cast<const Table::Content::MemoryRow&>(*this).Find(column) != nullptr;
}

}  // namespace QENFx::Data::Collection
