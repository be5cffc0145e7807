// The tables that a recording is made into: samples, events, messages, trials and blocks.
#pragma once

#include "encoding.h"
#include "item_columns.h"
#include "library_columns.h"
#include "places.h"
#include "table.h"

#include <string>
#include <vector>

namespace tables {

// An open recording whose places are known. All must outlive the tables.
struct Source {
    _TRKFILE *handle;
    const Places &places;
    TextDecoder &decoder;
    uint64_t unreadable = 0; // items that a table could not read, so far
};

// One row a sample.
class SampleTable : public Table {
  public:
    // The columns of any recording, and how many of them are there by default. Only where there are recording
    // blocks of more than 1000 samples per second, time_exact is among these.
    struct Choice {
        explicit Choice(const Places &places);

        std::vector<Column> all;
        std::vector<std::size_t> byDefault;
    };

    // `columns` as selectColumns takes them, "" for those by default. Throws std::invalid_argument.
    SampleTable(Source &source, std::string_view columns);

    [[nodiscard]] const std::vector<Column> &columns() const override { return columns_; }
    void read(Rows &rows) override;

  private:
    enum class From : uint8_t { Library, Trial, TrialTime };
    struct Part {
        From from;
        std::size_t place = 0; // among the columns that are read
    };

    [[nodiscard]] std::size_t placeOf(int id);

    Source &source_;
    std::vector<Column> columns_;
    std::vector<Part> parts_;
    std::vector<int> ids_; // that are read
    std::size_t item_;
    std::size_t time_;
    std::unique_ptr<trkapi::SampleReader> reader_;
    std::size_t row_ = 0; // of those that the reader holds
};

// One row a blink, saccade or fixation, button or input event.
class EventTable : public Table {
  public:
    explicit EventTable(Source &source);
    [[nodiscard]] const std::vector<Column> &columns() const override { return descriptions_; }
    void read(Rows &rows) override;

  protected:
    EventTable(Source &source, ItemKinds kinds, std::vector<ItemColumn> columns, bool (*isWanted)(const Item &));

  private:
    Source &source_;
    std::vector<ItemColumn> items_;
    std::vector<Column> descriptions_;
    bool (*isWanted_)(const Item &);
    trkapi::BulkWalk walk_;
};

// One row a message.
class MessageTable : public EventTable {
  public:
    explicit MessageTable(Source &source);
};

// A table that is in memory.
class ListTable : public Table {
  public:
    [[nodiscard]] const std::vector<Column> &columns() const override { return columns_; }
    void read(Rows &rows) override;

  protected:
    std::vector<Column> columns_;
    std::vector<std::vector<Cell>> list_;
    std::deque<std::string> texts_; // of the cells

  private:
    std::size_t next_ = 0;
};

// One row a recording block.
class BlockTable : public ListTable {
  public:
    explicit BlockTable(Source &source);
};

// One row a trial, with what an analysis starts from.
class TrialTable : public ListTable {
  public:
    // `variable` is a VariablePattern that messages are looked at with; each name becomes a column, and the last
    // value in a trial counts. "" for none. Throws std::invalid_argument.
    TrialTable(Source &source, const std::string &variable);

    // Those of any recording; between its two halves stand those of variables.
    [[nodiscard]] static std::vector<Column> fixedColumns();
};

} // namespace tables
