// Columns and rows: what every writer takes, and every source of a table gives.
#pragma once

#include "cell.h"

#include <cstddef>
#include <deque>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tables {

// What the cells of a column hold, when they are not missing.
enum class Type : uint8_t { Integer, Float, Double, Text };

[[nodiscard]] std::string_view typeName(Type type);

struct Column {
    std::string name;
    std::string unit; // "" for none
    std::string description;
    Type type = Type::Integer;
};

// Some rows of a table, at most kBlock of them.
class Rows {
  public:
    static constexpr std::size_t kBlock = 2048;

    explicit Rows(std::size_t columns) : columns_(columns) { cells_.reserve(columns * kBlock); }

    // A new row of missing cells. The table must have room for it.
    [[nodiscard]] std::span<Cell> add() {
        cells_.resize(cells_.size() + columns_);
        return std::span(cells_).last(columns_);
    }

    [[nodiscard]] std::size_t size() const { return columns_ == 0 ? 0 : cells_.size() / columns_; }
    [[nodiscard]] bool isFull() const { return size() == kBlock; }
    [[nodiscard]] std::span<const Cell> row(std::size_t i) const { return {&cells_[i * columns_], columns_}; }
    [[nodiscard]] std::size_t columns() const { return columns_; }

    void clear() {
        cells_.clear();
        texts_.clear();
    }

    // Keeps a text for as long as the rows stay.
    std::string_view keep(std::string text) { return texts_.emplace_back(std::move(text)); }

  private:
    std::size_t columns_;
    std::vector<Cell> cells_;
    std::deque<std::string> texts_;
};

// A table that is read from its first row to the last.
class Table {
  public:
    Table() = default;
    Table(const Table &) = delete;
    Table &operator=(const Table &) = delete;
    virtual ~Table() = default;

    [[nodiscard]] virtual const std::vector<Column> &columns() const = 0;

    // Replaces the rows by the next ones; none are left when there are none.
    virtual void read(Rows &rows) = 0;
};

// A file, or a part of one, that rows go to.
class TableWriter {
  public:
    TableWriter() = default;
    TableWriter(const TableWriter &) = delete;
    TableWriter &operator=(const TableWriter &) = delete;
    virtual ~TableWriter() = default;

    virtual void write(const Rows &rows) = 0;

    // Nothing comes any more.
    virtual void finish() {}
};

// 0 and on, so many.
[[nodiscard]] std::vector<std::size_t> firstPlaces(std::size_t count);

// The columns that a text names, in its order: names and patterns (gaze_*), separated by commas; behind a leading
// + come the columns that are there by default. Throws std::invalid_argument with a sentence for a person.
[[nodiscard]] std::vector<std::size_t>
selectColumns(std::span<const Column> all, std::span<const std::size_t> byDefault, std::string_view text);

// Rows on their way to a writer, for who makes them one by one.
class RowsTo {
  public:
    RowsTo(TableWriter &writer, std::size_t columns) : writer_(writer), rows_(columns) {}

    // With room for a row; texts that it keeps stay until flush().
    [[nodiscard]] Rows &withRoom() {
        if (rows_.isFull()) {
            flush();
        }
        return rows_;
    }

    void flush() {
        writer_.write(rows_);
        rows_.clear();
    }

  private:
    TableWriter &writer_;
    Rows rows_;
};

// The columns of a table that a text names, as selectColumns takes it; all for "".
class ChosenColumns : public Table {
  public:
    // The table must outlive it. Throws std::invalid_argument.
    ChosenColumns(Table &table, std::string_view text);

    [[nodiscard]] const std::vector<Column> &columns() const override { return columns_; }
    void read(Rows &rows) override;

  private:
    Table &table_;
    Rows all_;
    std::vector<std::size_t> places_;
    std::vector<Column> columns_;
};

// Writes all rows of a table. Returns how many there were.
uint64_t copyRows(Table &table, TableWriter &writer);

} // namespace tables
