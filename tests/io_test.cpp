// The byte stream, the head of a recording and inflation.
#include "base/exception.h"
#include "io/container.h"
#include "io/file_input_stream.h"
#include "io/inflate.h"
#include "support/walk.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <sstream>

namespace {

using namespace trk_test;
using namespace std::string_literals;
using trk::CaughtException, trk::FileInputStream, trk::FilePointer, trk::TRKException;

FilePointer fileWith(const Bytes &bytes) {
    FilePointer file(std::tmpfile());
    std::fwrite(bytes.data(), 1, bytes.size(), file.get());
    return file;
}

// Runs reads over a stream: b, w, i (byte, word, int), rN (raw), tN (text of at most N - 1), sN (seek). Gives each
// result, text or exception, then the position, and "$" at the end of file.
std::string trace(FilePointer file, const char *script, size_t window) {
    FileInputStream stream(std::move(file), window);
    std::ostringstream out;
    std::istringstream steps(script);
    for (std::string step; steps >> step;) {
        const int number = std::atoi(step.c_str() + 1);
        char text[64] = "-"; // stays when nothing is read
        const auto said = [&text](int result) { return std::to_string(result) + text; };
        try {
            out << (step == "b"                ? std::to_string(stream.getByte())
                    : step == "w"              ? std::to_string(stream.getWord())
                    : step == "i"              ? std::to_string(stream.getInt())
                    : step[0] == 'r'           ? said(stream.getRawData(text, number))
                    : step[0] == 't'           ? said(stream.getTerminatedString(text, number))
                    : stream.seek(number) == 0 ? "to"
                                               : "failed");
        } catch (TRKException *thrown) {
            out << CaughtException(thrown)->text();
        }
        out << '@' << stream.position() << (stream.eof() ? "$ " : " ");
    }
    return out.str();
}

TEST(InputStream, ReadsTheSameThroughAnyWindow) {
    const std::string failed = "End of file Exception";
    const struct {
        Bytes bytes;
        const char *script;
        std::string trace;
        LogLines log{};
    } cases[] = {
        {"\x12\x34\x00\x00\x01\x02\xFE"s, "w i b r1", "4660@2 258@6 254@7 0-@7$ "},
        {"", "b", failed + "@0$ ", {"error reading trk file 11\n"}},
        {"", "w w", failed + "@0$ " + failed + "@0$ ", LogLines(2, "error reading trk file 7a r = 0 \n")},
        {"a", "w s0 b", failed + "@1$ to@0 97@1 ", {"error reading trk file 7a r = 1 \n"}},
        {"abc", "b i s1 w", "97@1 " + failed + "@3$ to@1 25187@3 ", {"error reading trk file 9\n"}},
        {"ab\nxyz", "t35 r9 t35", "3ab\n@3 3xyz@6$ -1-@6$ "},
        {Bytes(40, 'x') + "\ny", "t35 t35 t2", "34" + Bytes(34, 'x') + "@34 7xxxxxx\n@41 1y@42 "},
        // A zero byte ends the text, not the line, and only the text counts in the position until the next seek.
        {"ab\0cd\nxyz"s, "t35 b s2 w", "2ab@2 120@3 to@2 99@4 "},
        {Bytes(200, 'a') + "bcd", "s100 b s200 r3 s203 r1 s150 s9",
         "to@100 97@101 to@200 3bcd@203 to@203 0-@203$ to@150 to@9 "},
        {"abcd", "s1000 r1 s1 b s-1 b b", "to@1000 0-@1000$ to@1 98@2 failed@-1 99@0 100@1 "},
    };
    const LogCapture log;
    for (const auto &expected : cases) {
        for (const size_t window : {size_t{1}, size_t{7}, size_t{64}, trk::InputStream::kDefaultWindowSize}) {
            EXPECT_EQ(trace(fileWith(expected.bytes), expected.script, window), expected.trace) << window;
            EXPECT_EQ(log.take(), expected.log);
        }
    }
    // A source that cannot be read has not ended.
    EXPECT_EQ(trace(FilePointer(std::fopen("/dev/null", "wb")), "r1 t9 w", 7), "0-@0 -1-@0 " + failed + "@0 ");
}

// What the head of a file says: variant, revision, model, "u" for UTF-8, text; or the exception.
std::string headOf(const Bytes &bytes, bool withText = false) {
    FileInputStream stream(fileWith(bytes), 64);
    try {
        const bool compressed = readMagicLine(stream) == trk::ContainerVariant::Compressed;
        const trk::Preamble preamble = readPreamble(stream);
        return (compressed ? "zip " : "plain ") + std::to_string(preamble.revision) + " " +
               std::to_string(preamble.trackerModel) + (trk::utf8encoding() ? "u" : "") +
               (withText ? preamble.text : "");
    } catch (TRKException *thrown) {
        return CaughtException(thrown)->text();
    }
}

TEST(Container, ReadsTheHead) {
    const Bytes magic = "QM_OPTICORE_COMBFILE\n";
    const Bytes end = "ENDP:\n";
    const std::string bad = "Bad magic.  Corrupt trk file. \n";
    const std::string failed = "End of file Exception";
    const std::pair<Bytes, std::string> cases[] = {
        {magic + "QMVB1.5.9\n" + end, "plain 0 1"},
        {"QM_OPTICORE_COMBFILE\r\n" + end, "plain 0 1"},
        {"QM_OPTICORE_7200FILE\n" + end, "plain 0 1"},
        {"QM_OPTICORE_7200FILE\r\n" + end, "plain 0 1"},
        {"QM_OPTICORE_7200FILE ZIP\n" + end, "zip 0 1"},
        {"QM_OPTICORE_7200FILE ZIP\r\n" + end, "zip 0 1"},
        {"", bad},
        {"\n" + magic + end, bad},
        {"QM_OPTICORE_COMBFILE", bad},
        {"QM_OPTICORE_COMBFILE \n" + end, bad},
        {"QM_OPTICORE_COMBFILE ZIP\n" + end, bad},
        {"QM_OPTICORE_COMBFILE\0\n"s + end, bad},
        {"QM_OPTICORE_7200FILE ZIP\r\r\n" + end, bad},
        {"\0"s + magic + end, failed},
        {magic, failed},
        {magic + "a\nENDP:\r\n", failed},
        {magic + "\0\n"s + end, failed},
        {magic + "VERSION: PUPILON V2 5\nSOURCE: PUPILON LX\n" + end, "plain 5 3"},
        {magic + "SOURCE: PUPILON V2.3\nVERSION: PUPILON V2 0\n" + end, "plain 1 2"},
        {magic + "VERSION: PUPILON V2 12x\nSOURCE: PUPILON VX\n" + end, "plain 12 1"},
        {magic + " VERSION: PUPILON V2 5\nENDP: \n SOURCE: PUPILON LX\n" + end, "plain 0 1"},
        {magic + "by QMVB1.6.0 \n" + end, "plain 0 1u"},
        {magic + end, "plain 0 1u"}, // a file without the tag keeps the flag of the one before
        {magic + "QMVB1.x QMVB1.6\n" + end, "plain 0 1"},
        {magic + "QMVB1.10\n" + end, "plain 0 1u"},
    };
    const LogCapture log;
    for (const auto &[bytes, head] : cases) {
        EXPECT_EQ(headOf(bytes), head) << bytes;
        EXPECT_EQ(log.take(), head == failed ? LogLines{"error reading trk file 6\n"} : LogLines{}) << bytes;
    }
    EXPECT_EQ(headOf(magic + "a\n\nVERSION: PUPILON V2 2\n" + end, true),
              "plain 2 1u** a\n** \n** VERSION: PUPILON V2 2\n");
    // Lines are read 199 characters at a time; the text is cut, the facts behind the cut are not.
    const std::string piece = "** " + Bytes(199, 'x');
    const std::string cut = headOf(magic + Bytes(2500, 'x') + "\nSOURCE: PUPILON LX\n" + end, true);
    EXPECT_EQ(cut.substr(0, 10 + 202 + 202), "plain 0 3u" + piece + piece);
    EXPECT_EQ(cut.size(), 10 + 1999U);
}

std::pair<int, Bytes> inflated(const Bytes &source) {
    FileInputStream stream(fileWith(source), 64);
    const FilePointer file(std::tmpfile());
    const int result = do_uncompress(stream, file.get());
    Bytes bytes(static_cast<size_t>(std::ftell(file.get())), '\0');
    std::rewind(file.get());
    EXPECT_EQ(std::fread(bytes.data(), 1, bytes.size(), file.get()), bytes.size());
    return {result, bytes};
}

TEST(Inflation, KeepsWhatCameBeforeTheDamage) {
    constexpr int kDataError = -3, kFileError = -1;
    std::mt19937 random; // incompressible: input and output advance together
    Bytes plain(40000, '\0');
    std::ranges::generate(plain, [&] { return static_cast<char>(random()); });
    for (const size_t size : {0U, 1U, 16384U, 32768U, 40000U}) {
        EXPECT_EQ(inflated(deflated(plain.substr(0, size)) + "more"), std::pair(0, plain.substr(0, size))) << size;
        EXPECT_EQ(inflated(deflated(Bytes(size, 'x'))), std::pair(0, Bytes(size, 'x'))) << size;
    }
    const Bytes whole = deflated(plain);
    Bytes wrongChecksum = whole; // noticed in the third chunk of input, after 32768 bytes
    wrongChecksum.back() ^= 1;
    for (const auto &[source, least] : {std::pair(whole.substr(0, 20000), 19900U), {wrongChecksum, 32700U}}) {
        const auto [result, bytes] = inflated(source);
        EXPECT_EQ(result, kDataError);
        EXPECT_GT(bytes.size(), least);
        EXPECT_TRUE(plain.starts_with(bytes));
    }
    for (const Bytes &none : {""s, "no zlib stream"s, "\x78\x20"s + "dict"}) { // the last wants a dictionary
        EXPECT_EQ(inflated(none), std::pair(kDataError, ""s));
    }
    FileInputStream source(fileWith(whole));
    EXPECT_EQ(do_uncompress(source, FilePointer(std::fopen("/dev/null", "rb")).get()), kFileError);
    FileInputStream unreadable(FilePointer(std::fopen("/dev/null", "wb")));
    EXPECT_EQ(do_uncompress(unreadable, fileWith("").get()), kFileError);
}

} // namespace
