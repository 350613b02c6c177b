#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "CapturedLog.h"
#include "rcAttrStream.h"

using namespace Vantrel;
using namespace std::string_literals;

namespace {

TEST(AttrStreamAdding, WritesEachTypeAndBlanksTheEarlierEntry) {
    const std::pair<void (*)(rcAttrStream&), std::string> cases[] = {
        {[](auto& s) { s.addStringValue("Name", "abc def"), s.addIntValue("Port", 7555); },
         "Name 7 abc defPort 4 7555"},
        {[](auto& s) { s.addStringValue("Name", "x"), s.addStringValue("Name", ""); }, "     1 xName 0 "},
        {[](auto& s) { s.addStringValue("AB", "A 1 x"), s.addIntValue("A", 1), s.addIntValue("A", 2); },
         "AB 5 A 1 x  1 1A 1 2"},  // neither a longer name nor text within a value is mistaken for the name
        {[](auto& s) { s.addStringValue("N", "a\0b"s); }, "N 1 a"},
        {[](auto& s) { s.addIntValue("I", -2147483647 - 1); }, "I 11 -2147483648"},
        {[](auto& s) { s.addUInt32Value("U", 255), s.addUInt32Value("Z", 0); }, "U 4 0xffZ 3 0x0"},
        {[](auto& s) { s.addUInt64Value("L", 0xFEDCBA9876543210UL); }, "L 18 0xfedcba9876543210"},
        {[](auto& s) { s.addBoolValue("T", true), s.addBoolValue("F", false); }, "T 1 1F 1 0"},
        {[](auto& s) { s.addFloatValue("F", -23.976F), s.addFloatValue("G", 25.0F); }, "F 7 -23.976G 2 25"},
        {[](auto& s) { s.addFloatValue("F", 1e-5F), s.addFloatValue("G", 0.0F); }, "F 5 1e-05G 1 0"},
    };
    for (const auto& [add, text] : cases) {
        rcAttrStream stream;
        add(stream);
        EXPECT_EQ(stream.text(), text);
    }
}

TEST(AttrStreamAdding, RefusesWhatTheEncodingCannotHold) {
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {nullptr, "x", "Assertion"},
        {"A", nullptr, "Assertion"},
        {"", "x", "Assertion"},
        {"two words", "x", "Illegal character: ' ' in attribute 'two words'."}};
    for (const auto& [name, value, message] : cases) {
        const CapturedLog log;
        rcAttrStream stream("A 1 1"s);
        stream.addStringValue(name, value);
        EXPECT_EQ(stream.text(), "A 1 1");
        EXPECT_TRUE(log.contains(message)) << message;
        EXPECT_TRUE(log.contains("common/src/base/rcApi/src/rcAttrStream"));
    }
}

TEST(AttrStreamAdding, TakesValuesThatLieInItsOwnText) {
    rcAttrStream stream("Name 40 0123456789012345678901234567890123456789"s);
    for (const char* name : {"A", "B", "C", "Name"}) {
        std::string_view value;
        ASSERT_TRUE(stream.getStringValue("Name", value));
        stream.addStringValue(name, value);
    }
    const std::string entry = " 40 0123456789012345678901234567890123456789";
    EXPECT_EQ(stream.text(), "    " + entry + "A" + entry + "B" + entry + "C" + entry + "Name" + entry);
}

TEST(AttrStreamAdding, KeepsTheBlankedEntriesExactlyAtEverySize) {
    std::mt19937 random(20240);
    for (const unsigned names : {1U, 5U, 12U, 13U, 14U, 40U, 300U}) {
        rcAttrStream stream;
        std::vector<std::pair<std::string, std::string>> entries;  // every one ever added
        for (unsigned step = 0; step < 4 * names + 40; ++step) {
            const std::string name = "n" + std::to_string(random() % names);
            for (auto& entry : entries) {
                if (entry.first == name) entry.first.assign(name.size(), ' ');
            }
            if (random() % 8 == 0) {
                rcAttrStream::Iterator(stream).remove(name.c_str());
            } else {
                stream.addIntValue(name.c_str(), static_cast<int>(step));
                entries.emplace_back(name, std::to_string(step));
            }
            if (random() % 64 == 0) stream = rcAttrStream(stream);
            if (random() % 64 == 0) stream = rcAttrStream(stream.text());
            std::string text;
            for (const auto& [key, value] : entries)
                text.append(key).append(" " + std::to_string(value.size()) + " ").append(value);
            ASSERT_EQ(stream.text(), text) << names << " names, step " << step;
        }
    }
}

TEST(AttrStreamAdding, ToReceivedTextReplacesOnlyWhatAReaderSees) {
    std::string many;
    for (char name = 'a'; name <= 't'; ++name) many += name + " 1 x"s;
    const std::tuple<std::string, const char*, std::string> cases[] = {
        {"A 1 1A 1 2", "A", "  1 1A 1 2A 1 9"},  // the first of two
        {many + "A 1 1A 1 2", "A", many + "  1 1A 1 2A 1 9"},
        {many + "B 5 x", "A", many + "B 5 xA 1 9"},            // swallowed by B's value
        {many + "B -1 A 1 2", "A", many + "B -1 A 1 2A 1 9"},  // behind a fault
        {many + "tail", "A", many + "tailA 1 9"},
        {many, "c", "a 1 xb 1 x  1 x" + many.substr(15) + "c 1 9"},
    };
    for (const auto& [received, name, text] : cases) {
        rcAttrStream stream(received);
        stream.addIntValue(name, 9);
        EXPECT_EQ(stream.text(), text);
    }
}

TEST(AttrStreamRemoving, StartsAgainAtTheFirstEntry) {
    rcAttrStream stream("A 1 1Bcd 1 2C 1 3"s);
    rcAttrStream::Iterator iterator(stream);
    std::string_view value;
    std::string_view name;
    for (const char* expected : {"A", "Bcd"}) {
        ASSERT_TRUE(iterator.next(name, value));
        EXPECT_EQ(name, expected);
    }
    for (const char* removed : {"nope", "", "Bcd"}) iterator.remove(removed);
    EXPECT_EQ(stream.text(), "A 1 1    1 2C 1 3");
    for (const char* expected : {"A", "C"}) {
        ASSERT_TRUE(iterator.next(name, value));
        EXPECT_EQ(name, expected);
    }
    const CapturedLog log;
    iterator.remove(nullptr);
    EXPECT_TRUE(log.contains("Assertion"));
}

}  // namespace
