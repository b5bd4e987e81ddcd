#include "qenfx/Table.h"

#include <sqlite3.h>

#include <algorithm>

namespace QENFx::Data::Collection {

namespace {

/// Equal for names that SQLite takes for the same column.
std::uint32_t HashOf(const char* name) {
    std::uint32_t hash = 0;
    for (; *name != '\0'; ++name) {
        const bool upper = *name >= 'A' && *name <= 'Z';
        hash = hash * 31 + static_cast<unsigned char>(upper ? *name + ('a' - 'A') : *name);
    }
    return hash;
}

}  // namespace

Table::Content::Content(std::vector<std::string> columns) {
    for (std::string& name : columns) {
        const std::uint32_t hash = HashOf(name.c_str());
        columns_.push_back({hash, std::move(name)});
    }
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
    // Of two columns of one name the first is found.
    const auto found = std::ranges::find_if(table_.columns_, [&, hash = HashOf(column)](const Column& each) {
        return each.hash == hash && (each.name == column || sqlite3_stricmp(each.name.c_str(), column) == 0);
    });
    if (found == table_.columns_.end()) {
        return nullptr;
    }
    const auto index = static_cast<std::size_t>(found - table_.columns_.begin());
    const Cell& cell = table_.cells_[firstCell_ + index];
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
