#include "table.h"

#include <algorithm>
#include <array>
#include <fnmatch.h>
#include <numeric>
#include <stdexcept>

namespace tables {

namespace {

std::size_t editDistance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < a.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::size_t replaced = diagonal + (a[i] == b[j] ? 0U : 1U);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

[[noreturn]] void failUnknown(std::span<const Column> all, const std::string &name) {
    const auto distance = [&name](const Column &column) {
        return column.name.find(name) != std::string::npos ? 0 : editDistance(name, column.name);
    };
    const auto nearest = std::ranges::min_element(all, {}, distance);
    throw std::invalid_argument("there is no column " + name + "; nearest is " + nearest->name +
                                "; --columns help lists all");
}

} // namespace

std::string_view typeName(Type type) {
    constexpr std::array<std::string_view, 4> kNames{"integer", "float", "double", "text"};
    return kNames[static_cast<std::size_t>(type)];
}

std::vector<std::size_t> firstPlaces(std::size_t count) {
    std::vector<std::size_t> places(count);
    std::iota(places.begin(), places.end(), std::size_t{0});
    return places;
}

std::vector<std::size_t> selectColumns(std::span<const Column> all, std::span<const std::size_t> byDefault,
                                       std::string_view text) {
    std::vector<std::size_t> chosen;
    const auto choose = [&chosen](std::size_t place) {
        if (std::ranges::find(chosen, place) == chosen.end()) {
            chosen.push_back(place);
        }
    };
    if (text.starts_with('+')) {
        chosen.assign(byDefault.begin(), byDefault.end());
        text.remove_prefix(1);
    }
    while (!text.empty()) {
        std::string name(text.substr(0, text.find(',')));
        text.remove_prefix(std::min(name.size() + 1, text.size()));
        std::erase(name, ' ');
        bool isKnown = false;
        for (std::size_t i = 0; i < all.size(); ++i) {
            if (::fnmatch(name.c_str(), all[i].name.c_str(), 0) == 0) {
                choose(i);
                isKnown = true;
            }
        }
        if (!isKnown) {
            failUnknown(all, name);
        }
    }
    if (chosen.empty()) {
        throw std::invalid_argument("no column is named; --columns help lists all");
    }
    return chosen;
}

ChosenColumns::ChosenColumns(Table &table, std::string_view text)
    : table_(table), all_(table.columns().size()), places_(firstPlaces(table.columns().size())) {
    if (!text.empty()) {
        places_ = selectColumns(table.columns(), std::vector(places_), text);
    }
    for (const std::size_t place : places_) {
        columns_.push_back(table.columns()[place]);
    }
}

// The texts stay where they are until the next rows.
void ChosenColumns::read(Rows &rows) {
    rows.clear();
    table_.read(all_);
    for (std::size_t i = 0; i < all_.size(); ++i) {
        for (std::size_t column = 0; Cell & cell : rows.add()) {
            cell = all_.row(i)[places_[column++]];
        }
    }
}

uint64_t copyRows(Table &table, TableWriter &writer) {
    Rows rows(table.columns().size());
    uint64_t count = 0;
    for (table.read(rows); rows.size() != 0; table.read(rows)) {
        writer.write(rows);
        count += rows.size();
    }
    writer.finish();
    return count;
}

} // namespace tables
