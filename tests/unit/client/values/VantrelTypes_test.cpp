#include <vantrel/VantrelTypes.h>

#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <cstring>
#include <string>
#include <tuple>
#include <utility>

#include "CapturedLog.h"
#include "Sanitizers.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

const char* emptyBuffer() {
    return VantrelStr().c_str();
}

TEST(VantrelStr, IsBuiltFromTheBytesItIsGiven) {
    const std::pair<VantrelStr, std::string> cases[] = {
        {VantrelStr(), ""},
        {VantrelStr(nullptr), ""},
        {VantrelStr("reel 1"), "reel 1"},
        {VantrelStr(nullptr, 3), ""},
        {VantrelStr("\0bc", 3), ""},
        {VantrelStr("abcdef", 3), "abc"},
        {VantrelStr("a\0c", 3), std::string("a\0c", 3)},
        {VantrelStr("abcdef").substr(2, 3), "cde"},
        {VantrelStr("abcdef").substr(4, 4294967295U), "ef"},
        {VantrelStr("abc").substr(3, 1), ""},
    };
    for (const auto& [str, expected] : cases) {
        EXPECT_EQ(std::string(str.c_str(), str.length()), expected);
        EXPECT_EQ(str.c_str()[str.length()], '\0');
        EXPECT_EQ(str.isEmpty(), expected.empty());
        EXPECT_EQ(str.c_str() == emptyBuffer(), expected.empty()) << expected;
    }
}

TEST(VantrelStr, AssignsAndAppends) {
    const struct {
        const char* before;
        void (*change)(VantrelStr&);
        const char* after;
    } cases[] = {
        {"null", [](VantrelStr& s) { s = nullptr; }, ""},
        {"abcdefghijkl", [](VantrelStr& s) { s = "x"; }, "x"},
        {"abcdefghijkl", [](VantrelStr& s) { s = s.c_str() + 3; }, "defghijkl"},
        {"itself", [](VantrelStr& s) { s = *&s; }, "itself"},
        {"", [](VantrelStr& s) { s += "reel"; }, "reel"},
        {"", [](VantrelStr& s) { s += 's'; }, "s"},
        {"character 0", [](VantrelStr& s) { s += '\0'; }, "character 0"},
        {"null", [](VantrelStr& s) { s += static_cast<const char*>(nullptr); }, "null"},
        {"abcdefghijkl", [](VantrelStr& s) { s += s; }, "abcdefghijklabcdefghijkl"},
        {"abcdefghijkl", [](VantrelStr& s) { s += s.c_str() + 9; }, "abcdefghijkljkl"},
        {"clear", [](VantrelStr& s) { s.clear(); }, ""},
        {"reset", [](VantrelStr& s) { s.reset(); }, ""},
    };
    for (const auto& c : cases) {
        VantrelStr str(c.before);
        c.change(str);
        EXPECT_STREQ(str.c_str(), c.after) << c.before;
        EXPECT_EQ(str.length(), std::strlen(c.after)) << c.before;
        EXPECT_EQ(*emptyBuffer(), '\0') << "the shared empty buffer was written";
    }
}

TEST(VantrelStr, ComparesBytesNotAddresses) {
    const VantrelStr a("abc");
    for (const char* text : {"abc", "ab", "abd", "abcd", "ab\xC3", "", static_cast<const char*>(nullptr)}) {
        SCOPED_TRACE(text ? text : "null");
        const int order = text ? std::strcmp("abc", text) : 1;
        EXPECT_TRUE((a == text) == (order == 0) && (text == a) == (order == 0));
        EXPECT_TRUE((a != text) == (order != 0) && (text != a) == (order != 0));
        EXPECT_TRUE((a < text) == (order < 0) && (text > a) == (order < 0));
        EXPECT_TRUE((a > text) == (order > 0) && (text < a) == (order > 0));
        EXPECT_TRUE((a <= text) == (order <= 0) && (text >= a) == (order <= 0));
        EXPECT_TRUE((a >= text) == (order >= 0) && (text <= a) == (order >= 0));
        if (!text) continue;
        const VantrelStr str(std::string(text).c_str());
        EXPECT_TRUE((a == str) == (order == 0) && (a != str) == (order != 0) && (a < str) == (order < 0));
        EXPECT_TRUE((a > str) == (order > 0) && (a <= str) == (order <= 0) && (a >= str) == (order >= 0));
    }
    EXPECT_FALSE(VantrelStr() == static_cast<const char*>(nullptr));
    // With a zero inside, lengths and bytes count between strings, the text before it elsewhere.
    EXPECT_FALSE(VantrelStr("a\0b", 3) == VantrelStr("a\0c", 3));
    EXPECT_TRUE(VantrelStr("a\0b", 3) == "a");
    EXPECT_TRUE(a[1] == 'b' && a[2L] == 'c' && a[0LL] == 'a' && a[3ULL] == '\0');
    EXPECT_TRUE(a && !VantrelStr()) << "true when it is not empty";
}

TEST(VantrelStr, KeepsZerosWhenItIsAppendedToItself) {
    VantrelStr str = VantrelStr("a\0b", 3).substr(1, 2);
    str += str;
    EXPECT_TRUE(str == VantrelStr("x\0b\0b", 5).substr(1, 4));
}

TEST(VantrelStr, IsEmptyRatherThanLongerThanItMayBe) {
    constexpr unsigned tooLong = 4294967295U;
    void* const bytes =
        ::mmap(nullptr, tooLong, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (bytes == MAP_FAILED) GTEST_SKIP() << "no address space for so long a text";
    *static_cast<char*>(bytes) = 'x';
    EXPECT_TRUE(VantrelStr(static_cast<char*>(bytes), tooLong).isEmpty());
    ::munmap(bytes, tooLong);
}

template <typename Value>
void expectKey(const Value& value, const Value& same, const Value& greater) {
    EXPECT_TRUE(value == same && value != greater && value < greater && !(value < same) &&
                !(greater < value));
    EXPECT_EQ(std::hash<Value>()(value), std::hash<Value>()(same));
    EXPECT_NE(std::hash<Value>()(value), std::hash<Value>()(greater));
}

TEST(VantrelValues, SomeAreKeys) {
    expectKey<VantrelStr>("abc", "abc", "abd");
    expectKey<VantrelNodeId>("abc", "abc", "abd");
    expectKey<VantrelFrameId>("abc", "abc", "abd");
    VantrelServerId last("d", "h", 2);
    last.setStorageId("s");
    const VantrelServerId ordered[] = {{"d", "h", 1}, {"d", "h", 2}, last, {"e", "h", 2}, {"", "i", 1}};
    for (int i = 0; i < 4; ++i) expectKey(ordered[i], VantrelServerId(ordered[i]), ordered[i + 1]);
}

TEST(VantrelStr, BecomesEmptyWhenMemoryRunsOut) {
    if (Vantrel::HAS_ADDRESS_SANITIZER || Vantrel::HAS_THREAD_SANITIZER)
        GTEST_SKIP() << "the sanitizers bring an allocator of their own";
    const std::string large(64U << 20, 'x');
    VantrelStr assigned("before");
    VantrelStr appended("before");
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_AS, &before), 0);
    const rlimit none{1, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_AS, &none), 0);
    assigned = large.c_str();
    appended += large.c_str();
    const VantrelStr built(large.c_str());
    ::setrlimit(RLIMIT_AS, &before);
    EXPECT_EQ(assigned.length() + appended.length() + built.length(), 0U);
    EXPECT_EQ(std::string(assigned) + appended.c_str() + built.c_str(), "");
}

VantrelStrList listOf(std::initializer_list<const char*> texts) {
    VantrelStrList list;
    for (const char* text : texts) list.push_back(text);
    return list;
}

std::vector<std::string> textsOf(const VantrelStrList& list) {
    std::vector<std::string> texts;
    for (unsigned i = 0; i < list.size(); ++i) texts.emplace_back(list[i]);
    return texts;
}

TEST(VantrelStrList, HoldsTextsInOrder) {
    VantrelStrList list = listOf({"a", nullptr, "c"});
    EXPECT_THAT(textsOf(list), ElementsAre("a", "", "c"));
    list.reserve(-1);
    list.reserve(100);
    EXPECT_EQ(list.size(), 3U);
    list.resize(4);
    EXPECT_THAT(textsOf(list), ElementsAre("a", "", "c", ""));
    list.resize(1);
    list.push_back("d");
    EXPECT_THAT(textsOf(list), ElementsAre("a", "d"));
    list.resize(-1);
    EXPECT_EQ(list.size(), 0U);
}

TEST(VantrelStrList, BadIndexIsLoggedAndGivesAnEmptyText) {
    const Vantrel::CapturedLog log;
    EXPECT_STREQ(VantrelStrList()[0], "");
    EXPECT_STREQ(listOf({"a"}).getStr(1), "");
    EXPECT_THAT(log.texts(Vantrel::CoMsg::ERROR),
                ElementsAre(HasSubstr("\"index < size()\""), HasSubstr("\"index < size()\"")));
}

TEST(VantrelDictionary, WritesAndReadsTheAttributeStream) {
    VantrelDictionary dictionary;
    EXPECT_TRUE(dictionary.isEmpty());
    VantrelStrList keys = listOf({"old"});
    dictionary.getFields(keys);
    EXPECT_EQ(keys.size(), 0U);
    dictionary.setString("Name", "abc def");
    dictionary.setInteger("Port", 7555);
    dictionary.setString("Empty", "");
    EXPECT_STREQ(dictionary.getStream(), "Name 7 abc defPort 4 7555Empty 0 ");

    const VantrelDictionary received(dictionary.getStream());
    VantrelStr text("before");
    int number = -1;
    EXPECT_TRUE(received.getString("Name", text) && received.getInteger("Port", number));
    EXPECT_FALSE(received.getString("name", text) || received.getInteger("Missing", number));
    EXPECT_STREQ(text.c_str(), "abc def");
    EXPECT_EQ(number, 7555);
    EXPECT_TRUE(received.getString("Empty", text) && text.isEmpty());
    received.getFields(keys);
    EXPECT_THAT(textsOf(keys), ElementsAre("Name", "Port", "Empty"));
}

TEST(VantrelDictionary, ComparesEntriesNotTheirOrder) {
    VantrelDictionary dictionary("A 1 1B 1 2");
    EXPECT_TRUE(dictionary == VantrelDictionary("B 1 2A 1 1"));
    EXPECT_TRUE(dictionary != VantrelDictionary("A 1 1B 1 3"));
    EXPECT_TRUE(VantrelDictionary() == VantrelDictionary("  1 x")) << "a removed entry does not count";
}

template <typename Value>
void expectValueSemantics(Value value, void (*change)(Value&)) {
    const Value original(value);
    const Value empty;
    Value copy(value);
    change(copy);
    EXPECT_TRUE(value == original && copy != original);
    Value& itself = value;
    value = itself;
    value = std::move(itself);
    EXPECT_TRUE(value == original) << "though assigned to itself";

    Value moved(std::move(value));
    EXPECT_TRUE(value == empty && moved == original);
    copy = std::move(moved);
    EXPECT_TRUE(moved == empty && copy == original);
    change(moved);
    moved = copy;
    change(copy);
    EXPECT_TRUE(moved == original) << "what was moved from can be used";
    moved = Value();
    EXPECT_TRUE(moved == empty);
}

TEST(VantrelValues, CopiesAreIndependentAndMovesLeaveNothing) {
    expectValueSemantics<VantrelStr>("abc", [](VantrelStr& str) { str += "d"; });
    expectValueSemantics<VantrelStrList>(listOf({"a", "b"}),
                                         [](VantrelStrList& list) { list.push_back("c"); });
    expectValueSemantics<VantrelDictionary>(
        VantrelDictionary("A 1 1B 1 2"),
        [](VantrelDictionary& dictionary) { dictionary.setInteger("A", 3); });
}

TEST(VantrelMetaDataBlob, HasFourKeysInOrder) {
    const VantrelMetaData::Blob blob("a b", "Xml 1", 2, -3);
    EXPECT_STREQ(blob.getRawData(), "FORMAT 5 Xml 1VERSION_MAJOR 1 2VERSION_MINOR 2 -3DATA 3 a b");
    EXPECT_STREQ(VantrelMetaData::Blob(nullptr, nullptr, 0, 0).getRawData(),
                 "FORMAT 0 VERSION_MAJOR 1 0VERSION_MINOR 1 0DATA 0 ");

    const VantrelMetaData::Blob received("FORMAT 1 fVERSION_MAJOR 2 12VERSION_MINOR 1 7DATA 4 a\n\"b");
    int majorVersion = 0;
    int minorVersion = 0;
    EXPECT_TRUE(received.getVersion(majorVersion, minorVersion) && majorVersion == 12 && minorVersion == 7);
    EXPECT_STREQ(received.getFormat(), "f");
    EXPECT_STREQ(received.getData(), "a\n\"b");

    const VantrelMetaData::Blob partial("VERSION_MAJOR 1 5");
    EXPECT_FALSE(partial.getVersion(majorVersion, minorVersion));
    EXPECT_EQ(majorVersion, 12);
    EXPECT_TRUE(partial.getData().isEmpty());
    EXPECT_EQ(std::string(VantrelMetaData::STREAM_BLOB()) + VantrelMetaData::STREAM_XML(), "BLOBXML");
}

}  // namespace
