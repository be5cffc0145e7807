#include "io/container.h"

#include "base/exception.h"
#include "base/log.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <string_view>

namespace trk {

namespace {

struct MagicLine {
    std::string_view line;
    ContainerVariant variant;
};

constexpr std::array kMagicLines{
    MagicLine{"QM_OPTICORE_7200FILE ZIP\n", ContainerVariant::Compressed},
    MagicLine{"QM_OPTICORE_7200FILE ZIP\r\n", ContainerVariant::Compressed},
    MagicLine{"QM_OPTICORE_COMBFILE\n", ContainerVariant::Plain},
    MagicLine{"QM_OPTICORE_COMBFILE\r\n", ContainerVariant::Plain},
    MagicLine{"QM_OPTICORE_7200FILE\n", ContainerVariant::Plain},
    MagicLine{"QM_OPTICORE_7200FILE\r\n", ContainerVariant::Plain},
};

constexpr int kMagicLineLimit = 35;
constexpr int kPreambleLineLimit = 200;
constexpr std::size_t kPreambleTextCapacity = 2000;

constexpr std::string_view kRevisionLine = "VERSION: PUPILON V2 ";
constexpr std::string_view kModel2Line = "SOURCE: PUPILON V2";
constexpr std::string_view kModel3Line = "SOURCE: PUPILON LX";
constexpr std::string_view kEndLine = "ENDP:\n";
constexpr std::string_view kVersionTag = "QMVB1.";
constexpr int kLastVersionWithoutUtf8 = 5;

std::atomic<bool> utf8EncodingFlag{false};

// As atoi, but defined for every number: what does not fit is cut to its low bits.
int decimalNumber(const std::string &text) { return static_cast<int>(std::strtol(text.c_str(), nullptr, 10)); }

[[noreturn]] void throwNoText() {
    print_log("error reading trk file 6\n");
    throwException(kEndOfFile);
}

void applyVersionTag(const std::string &preambleText) {
    const std::size_t tag = preambleText.find(kVersionTag);
    if (tag == std::string::npos) {
        return;
    }
    const std::string number = preambleText.substr(tag + kVersionTag.size());
    utf8EncodingFlag.store(decimalNumber(number.substr(0, number.find('.'))) > kLastVersionWithoutUtf8);
}

} // namespace

ContainerVariant readMagicLine(InputStream &stream) {
    std::array<char, kMagicLineLimit> line{};
    // A file with nothing in it answers -1 here and is refused by its empty line.
    if (stream.getTerminatedString(line.data(), kMagicLineLimit) == 0) {
        throwNoText();
    }
    const auto *const magic = std::ranges::find(kMagicLines, std::string_view(line.data()), &MagicLine::line);
    if (magic == kMagicLines.end()) {
        throwException("Bad magic.  Corrupt trk file. \n");
    }
    return magic->variant;
}

int get_combfile_preamble_text(InputStream &stream, Preamble &preamble, char *line, int size) {
    if (preamble.done) {
        return 1;
    }
    if (stream.getTerminatedString(line, size) <= 0) {
        throwNoText();
    }
    const std::string_view text(line);
    if (text.starts_with(kRevisionLine)) {
        const int number = decimalNumber(std::string(text.substr(kRevisionLine.size())));
        preamble.revision = static_cast<uint16_t>(number == 0 ? 1 : number);
    } else if (text.starts_with(kModel2Line)) {
        preamble.trackerModel = 2;
    } else if (text.starts_with(kModel3Line)) {
        preamble.trackerModel = 3;
    } else if (text == kEndLine) {
        preamble.done = true;
        return 1;
    }
    return 0;
}

Preamble readPreamble(InputStream &stream) {
    Preamble preamble;
    std::array<char, kPreambleLineLimit> line{};
    while (get_combfile_preamble_text(stream, preamble, line.data(), kPreambleLineLimit) == 0) {
        if (preamble.text.size() < kPreambleTextCapacity) {
            preamble.text.append("** ").append(line.data());
        }
    }
    preamble.text.resize(std::min(preamble.text.size(), kPreambleTextCapacity - 1));
    applyVersionTag(preamble.text);
    return preamble;
}

bool utf8encoding() { return utf8EncodingFlag.load(); }

} // namespace trk
