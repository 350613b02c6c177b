#include "CoConfigFileReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <sstream>
#include <tuple>
#include <utility>

#include "CapturedLog.h"
#include "TemporaryDirectory.h"

namespace Vantrel {
namespace {

using Strings = std::vector<std::string>;
using ::testing::ElementsAre;

/// All that is defined, as "section|name|value".
Strings contents(const CoConfigFileReader& reader) {
    Strings found;
    for (const char* const name : {"", "A", "B"}) {
        const CoConfigFileReader::Section* const section = reader.getSection(name);
        if (!section) continue;
        found.push_back(name);
        for (const auto& variable : section->variables) {
            found.push_back(std::string(name) + '|' + variable.name + '|' + variable.value);
        }
    }
    return found;
}

/// Reads a text; the warnings that it gives.
Strings read(CoConfigFileReader& reader, const std::string& text,
             unsigned options = CoConfigFileReader::READ_DEFAULT) {
    std::istringstream stream(text);
    Strings warnings;
    EXPECT_TRUE(reader.read(stream, options, &warnings));
    return warnings;
}

TEST(CoConfigFileReader, ReadsSectionsAndVariables) {
    struct {
        const char* what;
        std::string text;
        Strings defined;
        Strings warnings;
    } const cases[] = {
        {"blanks around everything", "  [A]  \n\t Port = 7556 \t\n", {"A", "A|Port|7556"}, {}},
        {"value with blanks and signs", "[A]\nx=a = b # c", {"A", "A|x|a = b # c"}, {}},
        {"empty value", "[A]\nx=\ny =", {"A", "A|x|", "A|y|"}, {}},
        {"carriage returns end lines", "[A]\rx=1\r\ny=2", {"A", "A|x|1", "A|y|2"}, {}},
        {"the last value counts", "[A]\nx=1\nx=2", {"A", "A|x|2"}, {}},
        {"a section goes on", "[A]\nx=1\n[B]\ny=2\n[A]\nz=3", {"A", "A|x|1", "A|z|3", "B", "B|y|2"}, {}},
        {"comments", "# [A]\n[A]\n;x=1\n #y=2\n\n", {"A"}, {}},
        {"a section without bracket loses a letter", "[AB\nx=1", {"A", "A|x|1"}, {}},
        {"no section", "Port=7556\n[A]\n", {"A"}, {"Invalid syntax: Not in section. Ignoring line 1"}},
        {"no value", "#\n[A]\nPort\n", {"A"}, {"Invalid syntax: No variable value. Ignoring line 3"}},
        {"no name", "[A]\n = 1\n", {"A"}, {"Invalid syntax: No variable name. Ignoring line 2"}},
        {"binary",
         std::string("[A]\nx=\0\xff\n\0\x80", 11),
         {"A", std::string("A|x|\0\xff", 6)},
         {"Invalid syntax: No variable value. Ignoring line 3"}},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        CoConfigFileReader reader;
        EXPECT_EQ(each.warnings, read(reader, each.text));
        EXPECT_EQ(each.defined, contents(reader));
    }
    CoConfigFileReader reader;
    read(reader, "[A]\nx=1\nx=2", CoConfigFileReader::READ_KEEP_FIRST);
    EXPECT_EQ("1", reader.getVariable("A", "x")->value);
}

TEST(CoConfigFileReader, CutsLinesAtTheirLongest) {
    const std::string longest(2047 - 2, 'v');  // of the line "x=..."
    const std::pair<std::string, Strings> cases[] = {
        {longest, {"x", "next"}},              // the longest line is whole, and no empty one follows it
        {longest + "v=", {"x", "v", "next"}},  // the rest is a line
    };
    for (const auto& [value, names] : cases) {
        SCOPED_TRACE(value.size());
        CoConfigFileReader reader;
        const Strings warnings = read(reader, "[A]\nx=" + value + "\nnext=1\nwrong\n");
        Strings found;
        for (const auto& variable : reader.getSection("A")->variables) found.push_back(variable.name);
        EXPECT_EQ(names, found);
        EXPECT_EQ(longest, reader.getVariable("A", "x")->value);
        EXPECT_THAT(warnings, ElementsAre("Invalid syntax: No variable value. Ignoring line " +
                                          std::to_string(names.size() + 2)));
    }
}

TEST(CoConfigFileReader, ALongFileNeitherFloodsTheLogNorTakesLong) {
    std::string rubbish;
    std::string text = "[A]\n";
    for (int i = 0; i < 100000; ++i) {
        rubbish += "x\n";
        text += std::to_string(i) + "=\n";
    }
    std::istringstream stream(rubbish);
    const CapturedLog log;
    CoConfigFileReader reader;
    ASSERT_TRUE(reader.read(stream));
    EXPECT_EQ(101U, log.texts().size());
    read(reader, text);  // minutes when every line looks through all before it
    EXPECT_EQ(100000U, reader.getSection("A")->variables.size());
}

TEST(CoConfigFileReader, RefusesWhatIsNoFile) {
    const TemporaryDirectory directory;
    directory.write("large", std::string(CoConfigFileReader::MAX_FILE_SIZE + 1, '\n'));
    directory.write("largest", std::string(CoConfigFileReader::MAX_FILE_SIZE, '\n'));
    ASSERT_EQ(0, ::mkfifo(directory.path("pipe").c_str(), 0600));
    const std::pair<std::string, int> cases[] = {
        {directory.path("missing"), ENOENT}, {directory.path(), EISDIR},
        {directory.path("pipe"), EINVAL},    {"/dev/zero", EINVAL},
        {directory.path("large"), EFBIG},    {directory.path("largest"), 0}};
    for (const auto& [file, error] : cases) {
        CoConfigFileReader reader;
        EXPECT_EQ(error == 0, reader.read(file)) << file;
        EXPECT_EQ(error, reader.lastErrorNumber()) << file;
    }
}

TEST(CoConfigFileReader, WritesBackWhatItRead) {
    const TemporaryDirectory directory;
    const std::string text =
        "# about this file\n\n; about A\n[A]\n# about x\nx=1\n\n#y=2\ny=\n[B]\n# the end\n";
    const std::string file = directory.write("x.cfg", text);
    CoConfigFileReader reader;
    ASSERT_TRUE(reader.read(file));
    ASSERT_TRUE(reader.write(file));
    EXPECT_EQ(text, directory.read("x.cfg"));

    ASSERT_TRUE(reader.put("A", "x", "2"));
    ASSERT_TRUE(reader.put("A", "new", true, "what it is for\n# and this"));
    ASSERT_TRUE(reader.put("C", "z", -3));
    EXPECT_EQ(
        "# about this file\n\n; about A\n[A]\n# about x\nx=2\n\n#y=2\ny=\n# what it is for\n# and "
        "this\nnew=true\n"
        "[B]\n[C]\nz=-3\n# the end\n",
        reader.toText());
    EXPECT_FALSE(reader.write(directory.path("missing/x.cfg")));
    EXPECT_EQ(ENOENT, reader.lastErrorNumber());
}

TEST(CoConfigFileReader, RefusesToPutWhatReadsBackDifferently) {
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"A\nx=1", "k", "v"}, {"A", "", "v"},       {"A", "#k", "v"}, {"A", " k", "v"},
        {"A", "k", "v\n"},    {"A", "k", "v\r[B]"}, {"A", "k", " v"}, {"A", "k\ny", "v"},
    };
    for (const auto& [section, key, value] : cases) {
        CoConfigFileReader reader;
        EXPECT_FALSE(reader.put(section, key, value)) << section << '|' << key;
        EXPECT_EQ("", reader.toText());
    }
    CoConfigFileReader reader;
    EXPECT_TRUE(reader.put(std::string(2045, 'A'), "k", std::string(2045, 'v')));
    EXPECT_FALSE(reader.put(std::string(2046, 'A'), "k", "v"));
    EXPECT_FALSE(reader.put("A", "k", std::string(2046, 'v')));
}

template <typename Value>
void expectValue(const std::string& text, bool valid, Value expected) {
    CoConfigFileReader reader;
    ASSERT_TRUE(reader.put("A", "x", text));
    Value value = expected;
    EXPECT_EQ(valid, reader.get("A", "x", value, Value())) << text;
    EXPECT_EQ(valid ? expected : Value(), value) << text;
    EXPECT_FALSE(reader.get("A", "missing", value, expected));
    EXPECT_EQ(expected, value);
}

TEST(CoConfigFileReader, GetsTypedValues) {
    expectValue("-2147483648", true, -2147483647 - 1);
    for (const char* text : {"2147483648", "", "+-5"}) expectValue(text, false, 7);
    expectValue("4294967295", true, 4294967295U);
    expectValue("-1", false, 7U);
    expectValue("on", true, true);
    expectValue("off", true, false);
    expectValue("maybe", false, true);
    expectValue("2.5", true, 2.5);
    expectValue("a b", true, std::string("a b"));
}

}  // namespace
}  // namespace Vantrel
