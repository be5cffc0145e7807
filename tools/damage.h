// What is wrong with a recording, and what of it is lost.
#pragma once

#include "open_recording.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

// What no way of reading gives back.
struct Loss {
    int64_t bytes = 0;
    double items = 0;        // about
    double seconds = 0;      // of samples, about
    bool isEstimated = true; // items and seconds; at the very start of a recording nothing tells
};

class DamageReport {
  public:
    explicit DamageReport(const Recording &recording);

    [[nodiscard]] const std::vector<TRK_DAMAGE> &damages() const { return damages_; } // in the order of the file
    [[nodiscard]] const std::vector<TRK_DAMAGE> &repairs() const { return repairs_; }
    [[nodiscard]] bool isDamaged() const { return !damages_.empty(); }
    [[nodiscard]] Status status() const { return isDamaged() ? kIncomplete : kSound; }

    // What is lost, however it was opened; nothing when that could not be found out.
    [[nodiscard]] const std::optional<Loss> &loss() const { return loss_; }

    // Where it is damaged and what is missing, for a person: to go on with behind "damaged".
    [[nodiscard]] std::string text() const;

    // The repairs, such as "blinks joined with others: 2"; empty when there are none.
    [[nodiscard]] std::string repairsText() const;

  private:
    std::vector<TRK_DAMAGE> damages_;
    std::vector<TRK_DAMAGE> repairs_;
    std::optional<Loss> loss_ = Loss{};
    bool breaksOff_ = false;
    bool hasItemsBehind_ = false; // that another way of reading could get wrong
    uint64_t itemsOnlySalvaged_ = 0;
};

// A word for a TRK_DAMAGE_KIND, for programs.
[[nodiscard]] std::string_view damageName(int kind);

// Tells standard error when a recording is damaged. Returns the exit status.
Status reportDamage(const Recording &recording, const DamageReport &report);

} // namespace tool
