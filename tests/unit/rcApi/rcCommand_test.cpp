#include "rcCommand.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <tuple>
#include <utility>
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

/// Reads `bytes`, which are one line, in fragments of every size, and hands each line read to `check`.
template <typename Line, typename Check>
void readInFragments(const std::string& bytes, Check check) {
    for (std::size_t size = 0; size <= bytes.size() + 5; ++size) {
        SCOPED_TRACE(bytes + " in fragments of " + std::to_string(size));
        Line line;
        EXPECT_EQ(feed(line, bytes + "next", size), bytes.size());
        EXPECT_EQ(line.receivedBytes(), bytes.size() - 1);
        check(line);
    }
}

using Fields = std::tuple<std::string, std::string, std::string, std::string, bool>;

Fields fieldsOf(const rcCommand& command) {
    return {command.type(), command.objectId(), command.method(), command.value().text(), command.isSync()};
}

TEST(rcCommand, ReadsLinesInFragmentsOfEverySize) {
    const std::pair<std::string, Fields> cases[] = {
        {"sync 0 Ping \n", {"sync", "0", "Ping", "", true}},
        {"async -7 Move a  b \n", {"async", "-7", "Move", "a  b ", false}},
        {"sync 12 Set one\\ntwo\\tthree\\\\four\n", {"sync", "12", "Set", "one\ntwo\tthree\\four", true}},
        {"sync 0 Set \\q\\\"\\ \\\\n\n", {"sync", "0", "Set", "q\" \\n", true}},
        {"sync 0 Set tail\\\n", {"sync", "0", "Set", "tail", true}},
        {"   x\n", {"", "", "", "x", false}},
        {"sync\\n 0 a\\b c\\d\n", {"sync\\n", "0", "a\\b", "cd", false}},
        {"sync 0 Ping\r\n", {"sync", "0", "Ping\r", "", true}},
        {std::string("sync 0 Set a\0b\xff\n", 16), {"sync", "0", "Set", std::string("a\0b\xff", 4), true}},
        {"syn\n", {"syn", "", "", "", false}},
    };
    for (const auto& each : cases) {
        readInFragments<rcCommand>(each.first, [&fields = each.second](const rcCommand& command) {
            EXPECT_EQ(fieldsOf(command), fields);
        });
    }
}

TEST(rcCommand, NothingOfALineIsLeftForTheNext) {
    rcCommand command;
    ASSERT_NE(feed(command, "sync 5 Set value\\\n", 0), 0U);  // an escape awaits its partner
    command.reset();
    ASSERT_NE(feed(command, "async 0 Get n\n", 3), 0U);
    EXPECT_EQ(fieldsOf(command), Fields("async", "0", "Get", "n", false));
    EXPECT_EQ(command.receivedBytes(), 13U);
}

TEST(rcCommand, WritesLines) {
    const std::tuple<rcCommand::Type, int, const char*, const char*, const char*> cases[] = {
        {rcCommand::Type::Sync, 0, "Ping", "", "sync 0 Ping \n"},
        {rcCommand::Type::Async, -2147483647 - 1, "Set", "a b", "async -2147483648 Set a b\n"},
        {rcCommand::Type::Sync, 3, "Set", "\n\t\\", "sync 3 Set \\n\\t\\\\\n"},
        {rcCommand::Type::Sync, 3, "Set", "\\n\r\"", "sync 3 Set \\\\n\r\"\n"},
        {static_cast<rcCommand::Type>(2), 0, "M", "", "unknown 0 M \n"},
    };
    std::string line = "what an earlier command left";
    for (const auto& [type, objectId, method, argument, expected] : cases) {
        rcCommand::format(type, objectId, method, argument, line);
        EXPECT_EQ(line, expected);
    }
}

TEST(rcResult, ReadsLinesInFragmentsOfEverySize) {
    const std::tuple<std::string, std::string, std::string, bool> cases[] = {
        {"ok\n", "ok", "", true},
        {"\n", "", "", false},
        {"error No such node\n", "error", "No such node", false},
        {"ok  a b\\\\n\\n\\t\n", "ok", " a b\\n\n\t", true},
        {"o\\k x\\y\n", "o\\k", "xy", false}};
    for (const auto& each : cases) {
        readInFragments<rcResult>(std::get<0>(each), [&each](const rcResult& result) {
            EXPECT_EQ(result.codeText(), std::get<1>(each));
            EXPECT_EQ(result.value().text(), std::get<2>(each));
            EXPECT_EQ(result.isOk(), std::get<3>(each));
        });
    }
}

TEST(rcResult, WritesLines) {
    std::string lines;
    rcResult::appendLine(rcResult::Code::Ok, "", lines);
    rcResult::appendLine(rcResult::Code::Error, "no\nway", lines);
    rcResult::appendLine(static_cast<rcResult::Code>(9), "x", lines);
    EXPECT_EQ(lines, "ok \nerror no\\nway\nunknown x\n");
}

TEST(rcValue, LongTextsWithEscapesAroundEveryBlockEdgeAreKept) {
    // Escapes at distances that drift against every power of two, so that some fall on either side of an
    // edge.
    std::string plain;
    std::string escaped;
    for (unsigned i = 0; plain.size() < 40000; ++i) {
        const std::string run(i % 131, 'x');
        plain += run + "\n\t\\"[i % 3];
        escaped += run + '\\' + "nt\\"[i % 3];
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

}  // namespace
}  // namespace Vantrel
