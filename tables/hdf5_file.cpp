#include "hdf5_file.h"

#include "text_output.h"

#include <algorithm>
#include <cerrno>
#include <hdf5.h>
#include <limits>
#include <system_error>
#include <utility>

namespace tables {

namespace {

constexpr hsize_t kChunk = 16384; // rows
constexpr unsigned kCompression = 4;

// An identifier of the HDF5 library, and how it is given back.
class Id {
  public:
    using Close = herr_t (*)(hid_t);

    Id(hid_t id, Close close, const std::string &file) : id_(id), close_(close) {
        if (id < 0) {
            failToWrite(file, errno != 0 ? errno : EIO);
        }
    }
    ~Id() {
        if (id_ >= 0) {
            close_(id_);
        }
    }
    Id(Id &&other) noexcept : id_(std::exchange(other.id_, -1)), close_(other.close_) {}
    Id(const Id &) = delete;
    Id &operator=(const Id &) = delete;
    Id &operator=(Id &&) = delete;

    operator hid_t() const { return id_; }

  private:
    hid_t id_;
    Close close_;
};

void demand(herr_t status, const std::string &file) {
    if (status < 0) {
        failToWrite(file, errno != 0 ? errno : EIO);
    }
}

Id textType(const std::string &file) {
    Id type(H5Tcopy(H5T_C_S1), H5Tclose, file);
    demand(H5Tset_size(type, H5T_VARIABLE), file);
    demand(H5Tset_cset(type, H5T_CSET_UTF8), file);
    return type;
}

void setAttribute(hid_t object, const char *name, std::string_view text, const std::string &file) {
    const std::string value(text);
    const char *const pointer = value.c_str();
    const Id type = textType(file);
    const Id space(H5Screate(H5S_SCALAR), H5Sclose, file);
    const Id attribute(H5Acreate2(object, name, type, space, H5P_DEFAULT, H5P_DEFAULT), H5Aclose, file);
    demand(H5Awrite(attribute, type, &pointer), file);
}

// Names that paths in the file, and the list of columns, can hold; each once.
std::vector<std::string> pathNames(const std::vector<Column> &columns) {
    std::vector<std::string> names;
    for (const Column &column : columns) {
        std::string name = column.name;
        std::ranges::replace_if(
            name, [](char character) { return character == '/' || character == ','; }, '_');
        if (name.starts_with('.')) {
            name.insert(0, "_");
        }
        while (std::ranges::find(names, name) != names.end()) {
            name += '_';
        }
        names.push_back(name);
    }
    return names;
}

hid_t storedType(Type type) { return type == Type::Float ? H5T_IEEE_F32LE : H5T_IEEE_F64LE; }

// Writes one column, a chunk at a time.
class ColumnWriter {
  public:
    ColumnWriter(hid_t group, const Column &column, const std::string &name, const std::string &file)
        : file_(file), type_(column.type), dataset_(create(group, name)) {
        setAttribute(dataset_, "units", column.unit, file_);
        setAttribute(dataset_, "description", column.description, file_);
    }

    void add(const Cell &cell) {
        if (type_ == Type::Text) {
            texts_.emplace_back(cell.isMissing() ? std::string_view() : cell.text());
        } else {
            numbers_.push_back(cell.isMissing() ? std::numeric_limits<double>::quiet_NaN() : cell.number());
        }
        if (texts_.size() + numbers_.size() == kChunk) {
            flush();
        }
    }

    void flush() {
        const hsize_t count = texts_.size() + numbers_.size();
        if (count == 0) {
            return;
        }
        const hsize_t all = written_ + count;
        demand(H5Dset_extent(dataset_, &all), file_);
        const Id target(H5Dget_space(dataset_), H5Sclose, file_);
        demand(H5Sselect_hyperslab(target, H5S_SELECT_SET, &written_, nullptr, &count, nullptr), file_);
        const Id memory(H5Screate_simple(1, &count, nullptr), H5Sclose, file_);
        if (type_ == Type::Text) {
            std::vector<const char *> pointers;
            for (const std::string &text : texts_) {
                pointers.push_back(text.c_str());
            }
            demand(H5Dwrite(dataset_, textType(file_), memory, target, H5P_DEFAULT, pointers.data()), file_);
        } else {
            demand(H5Dwrite(dataset_, H5T_NATIVE_DOUBLE, memory, target, H5P_DEFAULT, numbers_.data()), file_);
        }
        written_ = all;
        texts_.clear();
        numbers_.clear();
    }

  private:
    [[nodiscard]] Id create(hid_t group, const std::string &name) const {
        constexpr hsize_t kNone = 0;
        constexpr hsize_t kUnlimited = H5S_UNLIMITED;
        constexpr hsize_t kTextChunk = 1024;
        const bool isText = type_ == Type::Text;
        const hsize_t chunk = isText ? kTextChunk : kChunk;
        const Id space(H5Screate_simple(1, &kNone, &kUnlimited), H5Sclose, file_);
        const Id properties(H5Pcreate(H5P_DATASET_CREATE), H5Pclose, file_);
        demand(H5Pset_chunk(properties, 1, &chunk), file_);
        demand(H5Pset_shuffle(properties), file_);
        demand(H5Pset_deflate(properties, kCompression), file_);
        demand(H5Pset_obj_track_times(properties, false), file_); // the same rows give the same bytes
        const Id text = textType(file_);
        return {H5Dcreate2(group, name.c_str(), isText ? hid_t{text} : storedType(type_), space, H5P_DEFAULT,
                           properties, H5P_DEFAULT),
                H5Dclose, file_};
    }

    const std::string &file_;
    Type type_;
    Id dataset_;
    hsize_t written_ = 0;
    std::vector<double> numbers_;
    std::vector<std::string> texts_;
};

class GroupWriter : public TableWriter {
  public:
    GroupWriter(hid_t file, const std::string &table, const std::vector<Column> &columns, std::string fileName)
        : fileName_(std::move(fileName)),
          group_(H5Gcreate2(file, table.c_str(), H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT), H5Gclose, fileName_) {
        std::string order;
        columns_.reserve(columns.size());
        for (std::size_t i = 0; const std::string &name : pathNames(columns)) {
            columns_.emplace_back(group_, columns[i++], name, fileName_);
            order += (order.empty() ? "" : ",") + name;
        }
        setAttribute(group_, "columns", order, fileName_);
    }

    void write(const Rows &rows) override {
        for (std::size_t i = 0; i < rows.size(); ++i) {
            for (std::size_t column = 0; const Cell &cell : rows.row(i)) {
                columns_[column++].add(cell);
            }
        }
    }

    void finish() override {
        for (ColumnWriter &column : columns_) {
            column.flush();
        }
    }

  private:
    std::string fileName_;
    Id group_;
    std::vector<ColumnWriter> columns_;
};

WholeFile openWhole(const std::string &path) {
    try {
        return WholeFile(path);
    } catch (const std::system_error &error) {
        failToWrite(path, error.code().value());
    }
}

} // namespace

Hdf5File::Hdf5File(const std::string &path) : name_(path), file_(openWhole(path)), handle_(-1) {
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr); // errors are told by exceptions
    errno = 0;
    // Nobody else knows the file yet, and not every file system can lock.
    const Id access(H5Pcreate(H5P_FILE_ACCESS), H5Pclose, name_);
    demand(H5Pset_file_locking(access, false, true), name_);
    handle_ = H5Fcreate(file_.path().c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, access);
    demand(static_cast<herr_t>(handle_ < 0 ? -1 : 0), name_);
}

Hdf5File::~Hdf5File() {
    if (handle_ >= 0) {
        H5Fclose(handle_);
    }
}

std::unique_ptr<TableWriter> Hdf5File::addTable(const std::string &name, const std::vector<Column> &columns) {
    return std::make_unique<GroupWriter>(handle_, name, columns, name_);
}

void Hdf5File::describe(const std::string &name, std::string_view text) {
    setAttribute(handle_, name.c_str(), text, name_);
}

void Hdf5File::finish() {
    errno = 0;
    demand(H5Fclose(std::exchange(handle_, -1)), name_);
    try {
        file_.finish();
    } catch (const std::system_error &error) {
        failToWrite(name_, error.code().value());
    }
}

} // namespace tables
