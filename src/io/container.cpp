#include "io/container.h"

#include "base/exception.h"
#include "base/log.h"

#include <algorithm>
#include <array>
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

// As atoi, but defined for every number: what does not fit is cut to its low bits.
int decimalNumber(const std::string &text) { return static_cast<int>(std::strtol(text.c_str(), nullptr, 10)); }

[[noreturn]] void throwNoText(TRK_ERROR_CODE code) {
    logLine("error reading trk file 6\n");
    throw TRKException(kEndOfFile, code);
}

// Takes the facts from one line.
void applyLine(std::string_view line, Preamble &preamble) {
    if (line.starts_with(kRevisionLine)) {
        const int number = decimalNumber(std::string(line.substr(kRevisionLine.size())));
        preamble.revision = static_cast<uint16_t>(number == 0 ? 1 : number);
    } else if (line.starts_with(kModel2Line)) {
        preamble.trackerModel = 2;
    } else if (line.starts_with(kModel3Line)) {
        preamble.trackerModel = 3;
    }
}

} // namespace

ContainerVariant readMagicLine(InputStream &stream) {
    std::array<char, kMagicLineLimit> line{};
    // A file with nothing in it answers -1 here and is refused by its empty line.
    if (stream.getTerminatedString(line.data(), kMagicLineLimit) == 0) {
        throwNoText(TRK_ERROR_NOT_A_RECORDING);
    }
    const auto *const magic = std::ranges::find(kMagicLines, std::string_view(line.data()), &MagicLine::line);
    if (magic == kMagicLines.end()) {
        throw TRKException("Bad magic.  Corrupt trk file. \n", TRK_ERROR_NOT_A_RECORDING);
    }
    return magic->variant;
}

Preamble readPreamble(InputStream &stream) {
    Preamble preamble;
    std::array<char, kPreambleLineLimit> line{};
    while (true) {
        if (stream.getTerminatedString(line.data(), kPreambleLineLimit) <= 0) {
            throwNoText(TRK_ERROR_DAMAGED);
        }
        if (std::string_view(line.data()) == kEndLine) {
            break;
        }
        applyLine(line.data(), preamble);
        if (preamble.text.size() < kPreambleTextCapacity) {
            preamble.text.append("** ").append(line.data());
        }
    }
    preamble.text.resize(std::min(preamble.text.size(), kPreambleTextCapacity - 1));
    return preamble;
}

} // namespace trk
