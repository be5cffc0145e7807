#include "sample_reader.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace tables {

namespace {

constexpr std::size_t kRowsAtOnce = 8192;

} // namespace

Type typeOf(const TRK_COLUMN_DESCRIPTION &description) {
    return description.type == TRK_TYPE_FLOAT    ? Type::Float
           : description.type == TRK_TYPE_DOUBLE ? Type::Double
                                                 : Type::Integer;
}

Cell cellOf(double value, Type type) {
    if (std::isnan(value)) {
        return {};
    }
    return type == Type::Float    ? Cell(static_cast<float>(value))
           : type == Type::Double ? Cell(value)
                                  : Cell(static_cast<int64_t>(value));
}

SampleReader::SampleReader(_TRKFILE *handle, const std::vector<int> &ids, uint32_t first, uint32_t end)
    : handle_(handle), next_(first), end_(std::min(end, trk_get_element_count(handle))), columns_(ids.size()) {
    for (std::size_t i = 0; Values & values : columns_) {
        const int id = ids[i++];
        TRK_COLUMN_DESCRIPTION description;
        if (trk_describe_column(id, &description) != 0) {
            throw std::invalid_argument("there is no column " + std::to_string(id));
        }
        // A word as a float can be missing.
        if (description.type == TRK_TYPE_FLOAT || description.type == TRK_TYPE_UINT16) {
            values.singles.resize(kRowsAtOnce);
            places_.push_back({id, TRK_TYPE_FLOAT, values.singles.data(), 0});
        } else {
            values.doubles.resize(kRowsAtOnce);
            places_.push_back({id, TRK_TYPE_DOUBLE, values.doubles.data(), 0});
        }
    }
}

bool SampleReader::next() {
    rows_ = 0;
    while (rows_ == 0 && next_ < end_) {
        TRK_ERROR error;
        const int64_t count = trk_read_samples(handle_, next_, end_, places_.data(), places_.size(),
                                               int64_t{kRowsAtOnce}, TRK_READ_NAN, &error);
        if (count < 0) {
            throw std::runtime_error(error.text);
        }
        rows_ = static_cast<std::size_t>(count);
        next_ = static_cast<uint32_t>(error.item);
        if (error.code != TRK_OK) {
            ++unreadable_;
            failure_ = error.text;
            ++next_;
        }
    }
    return rows_ != 0;
}

} // namespace tables
