// The byte stream, the head of a recording and inflation.
#include "base/exception.h"
#include "io/container.h"
#include "io/file_input_stream.h"
#include "io/inflate.h"
#include "support/walk.h"

#include <gtest/gtest.h>
#include <optional>
#include <random>

namespace {

using namespace trk_test;
using namespace std::string_literals;
using trk::FileInputStream, trk::FilePointer;

FilePointer fileWith(const Bytes &bytes) {
    FilePointer file(std::tmpfile());
    std::fwrite(bytes.data(), 1, bytes.size(), file.get());
    return file;
}

// The text of what a call throws, empty without an exception.
template <class Call> std::string thrownBy(Call call) {
    try {
        call();
    } catch (const trk::TRKException &thrown) {
        return thrown.text();
    }
    return {};
}

TEST(InputStream, ReadsTheSameThroughAnyWindow) {
    const LogCapture log;
    for (const size_t window : {1U, 7U, 64U, 65536U}) {
        SCOPED_TRACE(window);
        FileInputStream stream(fileWith("\x12\x34\0\0\1\2\xFE"
                                        "ab\0cd\nxyz"s),
                               window);
        EXPECT_EQ(stream.getWord(), 0x1234);
        EXPECT_EQ(stream.getInt(), 258U);
        EXPECT_EQ(stream.getByte(), 0xFE);
        char text[36] = "";
        EXPECT_EQ(stream.getTerminatedString(text, 35), 2);
        EXPECT_EQ(stream.position(), 9) << "a zero byte ends the text, not the line, and only the text counts";
        EXPECT_EQ(stream.getTerminatedString(text, 4), 3);
        EXPECT_FALSE(stream.eof()) << "nothing has hit the end yet";
        EXPECT_EQ(stream.getTerminatedString(text, 35), -1);
        EXPECT_STREQ(text, "xyz");
        EXPECT_EQ(stream.position(), 12);
        EXPECT_TRUE(stream.eof());
        EXPECT_EQ(stream.seek(15), 0);
        EXPECT_FALSE(stream.eof());
        EXPECT_EQ(thrownBy([&] { stream.getInt(); }), "End of file Exception");
        EXPECT_EQ(stream.position(), 16) << "what there was is consumed";
        EXPECT_EQ(thrownBy([&] { stream.getByte(); }), "End of file Exception");
        EXPECT_EQ(stream.seek(15), 0);
        EXPECT_EQ(thrownBy([&] { stream.getWord(); }), "End of file Exception");
        EXPECT_EQ(log.take(),
                  "error reading trk file 9\nerror reading trk file 11\nerror reading trk file 7a r = 1 \n");
        EXPECT_EQ(stream.seek(2), 0);
        EXPECT_NE(stream.seek(-1), 0);
        EXPECT_EQ(stream.position(), -1);
        EXPECT_EQ(stream.getInt(), 258U) << "a failed seek moves the position alone";
        EXPECT_EQ(stream.seek(1000), 0);
        EXPECT_EQ(stream.getRawData(text, 3), 0);
        EXPECT_EQ(stream.position(), 1000);
    }
}

TEST(Container, ReadsTheHead) {
    // Variant, revision, model and text; or the exception.
    const auto headOf = [](const Bytes &bytes) {
        std::ostringstream head;
        const std::string thrown = thrownBy([&] {
            FileInputStream stream(fileWith(bytes), 64);
            head << (readMagicLine(stream) == trk::ContainerVariant::Plain ? "plain " : "zip ");
            const trk::Preamble preamble = readPreamble(stream);
            head << preamble.revision << ' ' << preamble.trackerModel << ' ' << preamble.text;
        });
        return thrown.empty() ? head.str() : thrown;
    };
    const auto facts = [&](const Bytes &lines) { return headOf("QM_OPTICORE_COMBFILE\n" + lines + "ENDP:\n"); };
    const LogCapture log;
    for (const Bytes &name : {"COMBFILE\r"s, "7200FILE"s, "7200FILE\r"s, "7200FILE ZIP"s, "7200FILE ZIP\r"s}) {
        EXPECT_EQ(headOf("QM_OPTICORE_" + name + "\nENDP:\n"), name.size() > 9 ? "zip 0 1 " : "plain 0 1 ")
            << name;
    }
    for (const Bytes &name :
         {""s, "COMBFILE"s, "COMBFILE \n"s, "COMBFILE\0\n"s, "COMBFILE ZIP\n"s, "7200FILE ZIP\r\r\n"s}) {
        EXPECT_EQ(headOf("QM_OPTICORE_" + name + "ENDP:\n"), "Bad magic.  Corrupt trk file. \n") << name;
    }
    EXPECT_EQ(facts("VERSION: PUPILON V2 12x\nSOURCE: PUPILON LX\n"),
              "plain 12 3 ** VERSION: PUPILON V2 12x\n** SOURCE: PUPILON LX\n");
    EXPECT_EQ(facts("SOURCE: PUPILON V2.3\nVERSION: PUPILON V2 0\n"),
              "plain 1 2 ** SOURCE: PUPILON V2.3\n** VERSION: PUPILON V2 0\n");
    EXPECT_EQ(facts(" VERSION: PUPILON V2 5\nENDP: \n"), "plain 0 1 **  VERSION: PUPILON V2 5\n** ENDP: \n");
    // Lines are read 199 characters at a time; the text is cut, the facts behind the cut are not.
    const std::string piece = "** " + Bytes(199, 'x'), cut = facts(Bytes(2500, 'x') + "\nSOURCE: PUPILON LX\n");
    EXPECT_EQ(cut.substr(0, 10 + 202 + 202), "plain 0 3 " + piece + piece);
    EXPECT_EQ(cut.size(), 10 + 1999U);
    EXPECT_EQ(log.take(), "");
    for (const Bytes &tail :
         {"\0QM"s, "QM_OPTICORE_COMBFILE\na\nENDP:\r\n"s, "QM_OPTICORE_COMBFILE\n\0\nENDP:\n"s}) {
        EXPECT_EQ(headOf(tail), "End of file Exception") << tail;
        EXPECT_EQ(log.take(), "error reading trk file 6\n");
    }
}

// How the inflation behind the first line of a source ends, and what it leaves: the same in memory, in a file and
// in one that is made on the way, by zlib alone and with the faster inflater first.
std::pair<trk::InflationEnd, Bytes> inflated(const Bytes &source) {
    std::optional<std::pair<trk::InflationEnd, Bytes>> first;
    for (const int64_t inMemory : {0, 20000, 1 << 20}) {
        for (const bool fast : {false, true}) {
            FileInputStream stream(fileWith("a\0b\n"s + source), 64);
            char line[9];
            stream.getTerminatedString(line,
                                       sizeof(line)); // after which the stream takes itself to stand elsewhere
            trk::InflatedData data(inMemory, [] { return FilePointer(std::tmpfile()); });
            const trk::Inflation result = inflateTo(data, stream, {.fast = fast});
            EXPECT_EQ(result.behind, result.end == trk::InflationEnd::Done ? 4 : 0);
            const auto content = std::move(data).read();
            Bytes bytes(static_cast<size_t>(result.inflated) + 1, '\0');
            const int size = content->getRawData(bytes.data(), static_cast<int>(bytes.size()));
            EXPECT_EQ(size, result.inflated);
            EXPECT_EQ(content->sourceSize(), size);
            // Jumps, out of the window and back.
            EXPECT_TRUE(content->seek(size + 9) == 0 && content->getRawData(line, 1) == 0 && content->eof());
            EXPECT_TRUE(content->seek(size / 2) == 0 && content->getRawData(line, 1) == std::min(size, 1));
            EXPECT_TRUE(size == 0 || line[0] == bytes[static_cast<size_t>(size / 2)]);
            bytes.pop_back();
            first = first.value_or(std::pair(result.end, bytes));
            EXPECT_TRUE(std::pair(result.end, bytes) == first) << inMemory << ' ' << fast;
        }
    }
    return *first;
}

TEST(Inflation, KeepsWhatCameBeforeTheDamage) {
    std::mt19937 random; // incompressible: input and output advance together
    Bytes plain(40000, '\0');
    std::ranges::generate(plain, [&] { return static_cast<char>(random()); });
    for (const size_t size : {0U, 1U, 16384U, 20000U, 32768U, 40000U}) {
        for (const Bytes &content : {plain.substr(0, size), Bytes(16 * size, 'x')}) {
            EXPECT_TRUE(inflated(deflated(content) + "more") == std::pair(trk::InflationEnd::Done, content))
                << size;
        }
    }
    const Bytes whole = deflated(plain);
    Bytes corrupted = whole; // the checksum, which is looked at in the third chunk of input
    corrupted.back() ^= 1;
    Bytes wide = whole; // a head that promises too large a window, and checks
    wide.replace(0, 2, "\x88\x1C");
    for (const auto &[source, least] :
         {std::pair(whole.substr(0, 20000), 19900U), {corrupted, 32700U}, {"?", 0U}, {wide, 0U}}) {
        const auto [result, bytes] = inflated(source);
        EXPECT_EQ(result, source == corrupted ? trk::InflationEnd::WrongChecksum : trk::InflationEnd::Damaged);
        EXPECT_GE(bytes.size(), least);
        EXPECT_TRUE(plain.starts_with(bytes));
    }
}

} // namespace
