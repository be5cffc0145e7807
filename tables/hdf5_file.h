// Tables in an HDF5 file: a group a table, in it a dataset a column.
#pragma once

#include "table.h"
#include "whole_file.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tables {

// There whole in the end, or not at all. Columns that may be missing are floating-point, with NaN; texts are UTF-8
// of variable length, "" where missing. Columns have the attributes "units" and "description", tables the
// attribute "columns" with their order.
class Hdf5File {
  public:
    // Throws OutputError, as all calls do.
    explicit Hdf5File(const std::string &path);
    ~Hdf5File();
    Hdf5File(const Hdf5File &) = delete;
    Hdf5File &operator=(const Hdf5File &) = delete;

    // Begins a table; what wrote the one before is done.
    std::unique_ptr<TableWriter> addTable(const std::string &name, const std::vector<Column> &columns);

    // Sets an attribute of the whole file.
    void describe(const std::string &name, std::string_view text);

    void finish();

  private:
    std::string name_;
    WholeFile file_;
    int64_t handle_;
};

} // namespace tables
