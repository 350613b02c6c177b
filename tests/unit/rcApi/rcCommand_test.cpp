#include "rcCommand.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

namespace Vantrel {
namespace {

/// Feeds the bytes to `line` in fragments of `size`, byte by byte through appendChar for 0. Returns how many
/// bytes were taken when the line was complete, or 0 when it never was.
template <typename Line>
std::size_t feed(Line& line, const std::string& bytes, std::size_t size) {
    std::size_t taken = 0;
    if (size == 0) {
        for (const char byte : bytes) {
            ++taken;
            if (line.appendChar(byte)) return taken;
        }
        return 0;
    }
    while (taken < bytes.size()) {
        std::size_t used = 0;
        const std::size_t count = std::min(size, bytes.size() - taken);
        const bool complete = line.append(bytes.data() + taken, count, used);
        taken += used;
        if (complete) return taken;
        EXPECT_EQ(used, count);
    }
    return 0;
}

struct Fields {
    std::string type, objectId, method, value;
    bool sync;
};

TEST(rcCommand, readsLinesInFragmentsOfEverySize) {
    struct Case {
        std::string bytes;
        Fields fields;
    };
    const Case cases[] = {
        {"sync 0 Ping \n", {"sync", "0", "Ping", "", true}},
        {"sync 0 Ping\n", {"sync", "0", "Ping", "", true}},
        {"async -7 Move a  b \n", {"async", "-7", "Move", "a  b ", false}},
        {"sync 12 Set one\\ntwo\\tthree\\\\four\n", {"sync", "12", "Set", "one\ntwo\tthree\\four", true}},
        {"sync 0 Set \\q\\\"\\ \\\\n\n", {"sync", "0", "Set", "q\" \\n", true}},
        {"sync 0 Set \\\\\\\\\\n\n", {"sync", "0", "Set", "\\\\\n", true}},
        {"sync 0 Set tail\\\n", {"sync", "0", "Set", "tail", true}},
        {"sync  Ping x\n", {"sync", "", "Ping", "x", true}},
        {"   x\n", {"", "", "", "x", false}},
        {"Sync 0 Ping \n", {"Sync", "0", "Ping", "", false}},
        {"sync\\n 0 a\\b c\\d\n", {"sync\\n", "0", "a\\b", "cd", false}},
        {"sync 0 Ping\r\n", {"sync", "0", "Ping\r", "", true}},
        {"sync 0 Set x\r\n", {"sync", "0", "Set", "x\r", true}},
        {std::string("sync 0 Set a\0b\xff\n", 16), {"sync", "0", "Set", std::string("a\0b\xff", 4), true}},
        {"\n", {"", "", "", "", false}},
        {"syn\n", {"syn", "", "", "", false}},
    };
    for (const Case& test : cases) {
        for (std::size_t size = 0; size <= test.bytes.size() + 5; ++size) {
            SCOPED_TRACE(test.bytes + " in fragments of " + std::to_string(size));
            rcCommand command;
            EXPECT_EQ(feed(command, test.bytes + "next", size), test.bytes.size());
            EXPECT_EQ(command.type(), test.fields.type);
            EXPECT_EQ(command.objectId(), test.fields.objectId);
            EXPECT_EQ(command.method(), test.fields.method);
            EXPECT_EQ(command.value().text(), test.fields.value);
            EXPECT_EQ(command.isSync(), test.fields.sync);
            EXPECT_EQ(command.receivedBytes(), test.bytes.size() - 1);
        }
    }
}

TEST(rcCommand, nothingOfALineIsLeftForTheNext) {
    rcCommand command;
    ASSERT_NE(feed(command, "sync 5 Set value\\\n", 0), 0U);  // an escape awaits its partner
    command.reset();
    ASSERT_NE(feed(command, "async 0 Get n\n", 3), 0U);
    EXPECT_EQ(command.type(), "async");
    EXPECT_EQ(command.objectId(), "0");
    EXPECT_EQ(command.method(), "Get");
    EXPECT_EQ(command.value().text(), "n");
    EXPECT_EQ(command.receivedBytes(), 13U);
}

TEST(rcCommand, writesLines) {
    struct Case {
        rcCommand::Type type;
        int objectId;
        std::string method, argument, line;
    };
    const Case cases[] = {
        {rcCommand::Type::Sync, 0, "Ping", "", "sync 0 Ping \n"},
        {rcCommand::Type::Async, -2147483647 - 1, "Set", "a b", "async -2147483648 Set a b\n"},
        {rcCommand::Type::Sync, 3, "Set", "\n\t\\", "sync 3 Set \\n\\t\\\\\n"},
        {rcCommand::Type::Sync, 3, "Set", "\\n\r\"", "sync 3 Set \\\\n\r\"\n"},
        {static_cast<rcCommand::Type>(2), 0, "M", "", "unknown 0 M \n"},
    };
    std::string line = "what an earlier command left";
    for (const Case& test : cases) {
        rcCommand::format(test.type, test.objectId, test.method, test.argument, line);
        EXPECT_EQ(line, test.line);
    }
}

TEST(rcResult, readsLinesInFragmentsOfEverySize) {
    struct Case {
        std::string bytes, code, value;
        bool ok;
    };
    const Case cases[] = {
        {"ok \n", "ok", "", true},
        {"ok\n", "ok", "", true},
        {"OK x\n", "OK", "x", false},
        {"okay x\n", "okay", "x", false},
        {" x\n", "", "x", false},
        {"\n", "", "", false},
        {"error No such node\n", "error", "No such node", false},
        {"ok  a b\\\\n\\n\\t\n", "ok", " a b\\n\n\t", true},
        {"o\\k x\\y\n", "o\\k", "xy", false},
    };
    for (const Case& test : cases) {
        for (std::size_t size = 0; size <= test.bytes.size() + 5; ++size) {
            SCOPED_TRACE(test.bytes + " in fragments of " + std::to_string(size));
            rcResult result;
            EXPECT_EQ(feed(result, test.bytes + "stray", size), test.bytes.size());
            EXPECT_EQ(result.codeText(), test.code);
            EXPECT_EQ(result.value().text(), test.value);
            EXPECT_EQ(result.isOk(), test.ok);
            EXPECT_EQ(result.receivedBytes(), test.bytes.size() - 1);
        }
    }
}

TEST(rcResult, writesLines) {
    struct Case {
        rcResult::Code code;
        std::string value, line;
    };
    const Case cases[] = {{rcResult::Code::Ok, "", "ok \n"},
                          {rcResult::Code::Error, "no\nway", "error no\\nway\n"},
                          {static_cast<rcResult::Code>(9), "x", "unknown x\n"}};
    std::string lines;
    std::string expected;
    for (const Case& test : cases) {
        rcResult::appendLine(test.code, test.value, lines);
        expected += test.line;
        EXPECT_EQ(lines, expected);
    }
}

TEST(rcValue, longTextsWithEscapesAroundEveryBlockEdgeAreKept) {
    // Escapes at distances that drift against every power of two, so that some fall on either side of an
    // edge.
    std::string plain;
    std::string escaped;
    for (int i = 0; plain.size() < 40000; ++i) {
        plain.append(static_cast<std::size_t>(i % 131), 'x');
        escaped.append(static_cast<std::size_t>(i % 131), 'x');
        plain += "\n\t\\"[i % 3];
        escaped += '\\';
        escaped += "nt\\"[i % 3];
    }
    std::string written = "before ";
    rcValue::appendEscaped(plain, written);
    EXPECT_TRUE(written == "before " + escaped);

    for (const std::size_t size : {1U, 7U, 4096U, 32768U}) {
        rcValue value;
        for (std::size_t at = 0; at < escaped.size(); at += size) {
            value.append(escaped.data() + at, std::min(size, escaped.size() - at));
        }
        EXPECT_TRUE(value.text() == plain) << size;
    }
}

/// Bytes of memory that this process has, or with `peak` the most that it had since the last resetPeak().
std::size_t memoryInUse(bool peak) {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        std::size_t kibibytes = 0;
        if (word == (peak ? "VmHWM:" : "VmRSS:") && status >> kibibytes) return kibibytes * 1024;
    }
    return 0;
}

void resetPeak() {
    std::ofstream("/proc/self/clear_refs") << 5;
}

// A sanitizer takes memory of its own for ours.
#if defined(__has_feature)
constexpr bool MEMORY_IS_SHADOWED = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool MEMORY_IS_SHADOWED = true;
#else
constexpr bool MEMORY_IS_SHADOWED = false;
#endif

TEST(rcResult, aLongValueTakesHardlyMoreMemoryThanItsBytes) {
    struct Case {
        const char* received;
        std::string text;
        std::size_t size;
    };
    const Case cases[] = {{"abcdefg\\", "abcdefg", (1U << 20) + 1},  // the backslash escapes the next 'a'
                          {"abcdefg\\", "abcdefg", 33U << 20},
                          {"\\n", "\n", 9U << 20}};
    for (const Case& test : cases) {
        SCOPED_TRACE(test.text + " up to " + std::to_string(test.size));
        std::string piece;
        while (piece.size() < 32768) piece += test.received;
        resetPeak();
        const std::size_t before = memoryInUse(false);
        rcResult line;
        std::size_t used = 0;
        ASSERT_FALSE(line.append("ok ", 3, used));
        while (line.value().text().size() < test.size) {
            ASSERT_FALSE(line.append(piece.data(), piece.size(), used));
        }
        ASSERT_TRUE(line.append("\n", 1, used));
        const std::size_t taken = memoryInUse(true) - before;
        EXPECT_TRUE(MEMORY_IS_SHADOWED || taken < test.size / 4 * 5 + (1U << 20)) << taken;

        const std::string& text = line.value().text();
        std::size_t at = 0;
        while (at < text.size() && text.compare(at, test.text.size(), test.text) == 0) at += test.text.size();
        EXPECT_EQ(at, text.size());
    }
}

}  // namespace
}  // namespace Vantrel
