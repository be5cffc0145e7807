#include "trkwriter/damage.h"

#include "random.h"
#include "trkwriter/recorder.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <sys/stat.h>
#include <sys/types.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace trkwriter {

namespace {

constexpr std::array<std::pair<std::string_view, Damage>, 4> kNames{
    {{"bit", Damage::Bit}, {"zero", Damage::Zero}, {"hole", Damage::Hole}, {"cut", Damage::Cut}}};

constexpr uint64_t kSmallestFile = 4096;

[[noreturn]] void fail(const std::string &reason) { throw Error("the recording cannot be damaged: " + reason); }
[[noreturn]] void failWithErrno() { fail(std::generic_category().message(errno)); }

void readAt(int descriptor, uint64_t offset, std::vector<char> &bytes) {
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t count =
            ::pread(descriptor, bytes.data() + done, bytes.size() - done, static_cast<off_t>(offset + done));
        if (count > 0) {
            done += static_cast<std::size_t>(count);
        } else if (count == 0) {
            fail("it has become shorter");
        } else if (errno != EINTR) {
            failWithErrno();
        }
    }
}

void writeAt(int descriptor, uint64_t offset, const std::vector<char> &bytes) {
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t count =
            ::pwrite(descriptor, bytes.data() + done, bytes.size() - done, static_cast<off_t>(offset + done));
        if (count >= 0) {
            done += static_cast<std::size_t>(count);
        } else if (errno != EINTR) {
            failWithErrno();
        }
    }
}

void truncate(int descriptor, uint64_t size) {
    if (::ftruncate(descriptor, static_cast<off_t>(size)) != 0) {
        failWithErrno();
    }
}

// Moves what lies behind the hole down, piece by piece.
void takeOut(int descriptor, const DamagedPlace &place, uint64_t size) {
    constexpr uint64_t kPiece = 1 << 16;
    std::vector<char> bytes;
    for (uint64_t from = place.offset + place.length; from < size; from += bytes.size()) {
        bytes.resize(std::min(kPiece, size - from));
        readAt(descriptor, from, bytes);
        writeAt(descriptor, from - place.length, bytes);
    }
    truncate(descriptor, size - place.length);
}

} // namespace

std::optional<Damage> damageNamed(std::string_view name) {
    const auto *const found = std::ranges::find(kNames, name, &std::pair<std::string_view, Damage>::first);
    return found == kNames.end() ? std::nullopt : std::optional(found->second);
}

DamagedPlace damageFile(int descriptor, Damage damage, uint64_t seed) {
    struct stat status {};
    if (::fstat(descriptor, &status) != 0) {
        failWithErrno();
    }
    if (!S_ISREG(status.st_mode)) {
        fail("it is no file");
    }
    const auto size = static_cast<uint64_t>(status.st_size);
    if (size < kSmallestFile) {
        fail("it is shorter than 4096 bytes");
    }
    Random random(seed, 100 + static_cast<uint64_t>(damage));
    const double lowest = damage == Damage::Cut ? 0.5 : 0.1;
    const auto offset = static_cast<uint64_t>(random.uniform(lowest, 0.8) * static_cast<double>(size));
    DamagedPlace place{offset, 64 + random.bits() % 449};
    std::vector<char> bytes;
    switch (damage) {
    case Damage::Bit:
        place.length = 1;
        bytes.resize(1);
        readAt(descriptor, place.offset, bytes);
        bytes[0] = static_cast<char>(bytes[0] ^ (1 << random.bits() % 8));
        writeAt(descriptor, place.offset, bytes);
        break;
    case Damage::Zero:
        bytes.resize(place.length);
        writeAt(descriptor, place.offset, bytes);
        break;
    case Damage::Hole:
        takeOut(descriptor, place, size);
        break;
    case Damage::Cut:
        place.length = size - place.offset;
        truncate(descriptor, place.offset);
        break;
    }
    return place;
}

} // namespace trkwriter
