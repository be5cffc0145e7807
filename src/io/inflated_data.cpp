#include "io/inflated_data.h"

#include "base/large_pages.h"

#include <algorithm>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>

namespace trk {

namespace {

// Large enough that writing it costs little beside its bytes, small enough to be in the cache when it is written.
constexpr std::size_t kBuffer = std::size_t{256} * 1024;

// Large pages would be wasted on what is small.
constexpr std::size_t kSmallPagesUpTo = std::size_t{2} << 20;

class ReserveInputStream final : public InputStream {
  public:
    explicit ReserveInputStream(Reserve reserve) : InputStream(0), reserve_(std::move(reserve)) {}

    [[nodiscard]] int64_t sourceSize() override { return static_cast<int64_t>(reserve_.bytes().size()); }

  protected:
    std::ptrdiff_t readSource(uint8_t *buffer, std::size_t size) override {
        const std::size_t count = std::min(size, reserve_.bytes().size() - at_);
        std::copy_n(reserve_.bytes().begin() + static_cast<std::ptrdiff_t>(at_), count, buffer);
        at_ += count;
        return static_cast<std::ptrdiff_t>(count);
    }

    // All of the rest: nothing is copied, and going back is a pointer move.
    std::ptrdiff_t lendSource(const uint8_t *&begin, std::size_t /*size*/) override {
        const std::span<const uint8_t> rest =
            reserve_.bytes().subspan(std::exchange(at_, reserve_.bytes().size()));
        begin = rest.data();
        return static_cast<std::ptrdiff_t>(rest.size());
    }

    bool seekSource(int64_t offset) override {
        at_ = static_cast<std::size_t>(std::min(offset, sourceSize()));
        return true;
    }

  private:
    Reserve reserve_;
    std::size_t at_ = 0;
};

} // namespace

Reserve::Reserve(std::size_t size) {
    void *const begin =
        ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (begin == MAP_FAILED) {
        return;
    }
    bytes_ = {static_cast<uint8_t *>(begin), size};
    if (size > kSmallPagesUpTo) {
        useLargePages(bytes_.data() + kSmallPagesUpTo, size - kSmallPagesUpTo);
    }
}

Reserve::~Reserve() { cutTo(0); }

Reserve::Reserve(Reserve &&from) noexcept : bytes_(std::exchange(from.bytes_, {})) {}

Reserve &Reserve::operator=(Reserve &&from) noexcept {
    std::swap(bytes_, from.bytes_);
    return *this;
}

void Reserve::cutTo(std::size_t size) {
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    const std::size_t kept = (size + page - 1) / page * page;
    if (kept < bytes_.size()) {
        ::munmap(bytes_.data() + kept, bytes_.size() - kept);
    }
    bytes_ = bytes_.first(size);
}

InflatedData::InflatedData(int64_t mostInMemory, FileMaker makeFile)
    : mostInMemory_(static_cast<std::size_t>(mostInMemory)), makeFile_(std::move(makeFile)) {
    if (mostInMemory_ > 0) {
        reserve_ = Reserve(mostInMemory_ + kLeastRoom);
    }
    if (reserve_.bytes().empty()) {
        beginFile();
    }
}

bool InflatedData::add(std::size_t count) {
    filled_ += count;
    if (!file_) {
        return filled_ <= mostInMemory_ || moveToFile();
    }
    return buffer_.size() - filled_ >= kLeastRoom || write(buffer_);
}

bool InflatedData::finish() { return !file_ || write(buffer_); }

bool InflatedData::clear() {
    filled_ = 0;
    if (!file_) {
        return true;
    }
    std::clearerr(file_.get());
    return fseeko(file_.get(), 0, SEEK_SET) == 0 && ftruncate(fileno(file_.get()), 0) == 0;
}

std::unique_ptr<InputStream> InflatedData::read() && {
    if (file_) {
        return std::make_unique<FileInputStream>(std::move(file_));
    }
    reserve_.cutTo(filled_);
    return std::make_unique<ReserveInputStream>(std::move(reserve_));
}

void InflatedData::beginFile() {
    file_ = makeFile_();
    buffer_.resize(kBuffer);
}

bool InflatedData::write(std::span<const uint8_t> from) {
    const std::size_t count = std::exchange(filled_, 0);
    return std::fwrite(from.data(), 1, count, file_.get()) == count;
}

bool InflatedData::moveToFile() {
    beginFile();
    const bool written = write(reserve_.bytes());
    reserve_ = {};
    return written;
}

} // namespace trk
