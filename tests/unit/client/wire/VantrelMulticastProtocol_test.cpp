#include "VantrelMulticastProtocol.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "CapturedLog.h"
#include "CoMsg.h"

using testing::ElementsAre;
using testing::IsEmpty;
using Vantrel::CapturedLog;
using Vantrel::CoMsg;
using Vantrel::rcAttrStream;

namespace {

using Protocol = VantrelMulticastProtocol;
using Infos = std::vector<VantrelDaemonInfo>;
using Texts = std::vector<std::string>;

constexpr const char* SOURCE = "vantrel/src/client/api/VantrelMulticastProtocol";

std::string toText(const VantrelDaemonInfo& info) {
    return info.toAttrStream().text();
}

VantrelDaemonInfo infoOf(const char* storageId, const char* database, int port) {
    VantrelDaemonInfo info;
    info.setStorageId(storageId);
    info.setDatabase(database);
    info.setNodePort(port);
    return info;
}

/// "storage id/database:port" of each record.
Texts summaries(const Infos& infos) {
    Texts found;
    for (const VantrelDaemonInfo& info : infos) {
        found.push_back(std::string(info.getStorageId()) + "/" + info.getDatabase() + ":" +
                        std::to_string(info.getNodePort()));
    }
    return found;
}

Texts decoded(const std::string& text, const char* database = nullptr) {
    Infos infos;
    Protocol::decode(text, infos, database);
    return summaries(infos);
}

TEST(DiscoveryDatagram, IsWrittenAsServersReadIt) {
    rcAttrStream payload;
    payload.addStringValue("StorageId", "st 1");
    EXPECT_EQ(Protocol::create(Protocol::FIND_SERVERS, payload),
              "Version 1 1Type 2 74Data 16 StorageId 4 st 1");
    EXPECT_EQ(Protocol::create(Protocol::REMOVE_SERVER, rcAttrStream()), "Version 1 1Type 2 73Data 0 ");
}

TEST(DiscoveryDatagram, IsRead) {
    const struct {
        const char* text;
        int type;
        const char* data;
    } cases[] = {
        {"Version 1 1Type 2 71Data 16 StorageId 4 st 1", 71, "StorageId 4 st 1"},
        {"Version 1 2Type 2 72Data 7 A 3 b c", 72, "A 3 b c"},
        {"Version 2 -1Type 2 73Data 0 ", 73, ""},
        {"Version 1 1Type 2 70Data 1 x", 70, "x"},
        {"Version 1 1Type 2 74Data 1 x", 74, "x"},
        {"Version 1 1Type 2 75Data 1 x", 75, "x"},
        {"Data 1 xType 2 72Later 2 onVersion 1 1", 72, "x"},
    };
    for (const auto& c : cases) {
        CapturedLog log;
        const auto request = Protocol::parse(c.text);
        ASSERT_TRUE(request) << c.text;
        EXPECT_EQ(request->type, c.type) << c.text;
        EXPECT_EQ(request->payload.text(), c.data) << c.text;
        EXPECT_THAT(log.texts(), IsEmpty()) << c.text;
    }
}

TEST(DiscoveryDatagram, IsRefused) {
    const struct {
        const char* text;
        const char* message;
    } cases[] = {
        {"", "Request is lacking a version tag: ."},
        {"hello", "Request is lacking a version tag: hello."},
        {"Type 2 71Data 1 x", "Request is lacking a version tag: Type 2 71Data 1 x."},
        {"version 1 1Type 2 71Data 1 x", "Request is lacking a version tag: version 1 1Type 2 71Data 1 x."},
        {"Version 1 0Type 2 71Data 1 x", "Request's version is incompatible: 0."},
        {"Version 3 oneType 2 71Data 1 x", "Request's version is incompatible: 0."},
        {"Version 1 1Data 1 x", "Request is lacking a type tag: Version 1 1Data 1 x."},
        {"Version 1 1Type 2 69Data 1 x", "Unknown request type: 69."},
        {"Version 1 1Type 2 76Data 1 x", "Unknown request type: 76."},
        {"Version 1 1Type 1 0Data 1 x", "Unknown request type: 0."},
        {"Version 1 1Type 3 -71Data 1 x", "Unknown request type: -71."},
        {"Version 1 1Type 2 71", "Request is lacking data: Version 1 1Type 2 71."},
    };
    for (const auto& c : cases) {
        CapturedLog log;
        EXPECT_FALSE(Protocol::parse(c.text)) << c.text;
        EXPECT_THAT(log.texts(CoMsg::ERROR), ElementsAre(c.message));
        EXPECT_EQ(log.entries().back().source, SOURCE);
    }
    EXPECT_FALSE(Protocol::parse("Version 1 1Type 2 72Data 9 cut"));
}

TEST(DiscoveryDatagram, TypesHaveNames) {
    const char* const names[] = {
        "START_OF_SERVICES", "DISCOVER_SERVERS", "DISCOVER_SERVERS_REPLY", "REMOVE_SERVER", "FIND_SERVERS",
        "END_OF_SERVICES",   "UNKNOWN"};
    int type = 70;
    for (const char* name : names) {
        EXPECT_STREQ(Protocol::getRequestTypeStr(static_cast<Protocol::RequestType>(type++)), name);
    }
    EXPECT_STREQ(Protocol::getRequestTypeStr(Protocol::INVALID), "INVALID");
}

TEST(DaemonList, IsWrittenInOrder) {
    std::string text = "before";
    Protocol::encode({}, text);
    EXPECT_EQ(text, "Count 1 0");

    const Infos infos = {infoOf("z", "B", 1), infoOf("a", "A", 2)};
    Protocol::encode(infos, text);
    const std::string first = toText(infos[0]);
    const std::string second = toText(infos[1]);
    EXPECT_EQ(text, "Count 1 2Node0 " + std::to_string(first.size()) + " " + first + "Node1 " +
                        std::to_string(second.size()) + " " + second);
}

TEST(DaemonList, IsRead) {
    const std::string a = "StorageId 1 aDatabase 1 A";
    const std::string node0 = "Node0 25 " + a;
    const std::string node1 = "Node1 40 StorageId 1 bDatabase 1 BNodePort 4 7600";
    const std::string node2 = "Node2 38 StorageId 1 cDatabase 1 ANodePort 2 -1";
    const struct {
        const char* what;
        std::string text;
        const char* database;
        Texts records;
        Texts errors;
    } cases[] = {
        {"a list", "Count 1 3" + node0 + node1 + node2, nullptr, {"a/A:7549", "b/B:7600", "c/A:-1"}, {}},
        {"no filter", "Count 1 2" + node0 + node1, "", {"a/A:7549", "b/B:7600"}, {}},
        {"a filter", "Count 1 3" + node0 + node1 + node2, "A", {"a/A:7549", "c/A:-1"}, {}},
        {"its case", "Count 1 2" + node0 + node1, "a", {}, {}},
        {"the whole of it", "Count 1 2" + node0 + node1, "BB", {}, {}},
        {"less than all", "Count 1 1" + node0 + node1, nullptr, {"a/A:7549"}, {}},
        {"any order", node1 + node0 + "Count 1 2", nullptr, {"a/A:7549", "b/B:7600"}, {}},
        {"a gap",
         "Count 1 3" + node0 + node2,
         nullptr,
         {"a/A:7549", "c/A:-1"},
         {"Stream is missing node 1 of 3."}},
        {"a first gap", "Count 1 2" + node1, nullptr, {"b/B:7600"}, {"Stream is missing node 0 of 2."}},
        {"spelt otherwise",
         "Count 1 2Node00 1 xNode+1 1 xnode1 1 xNode1x 1 xNode 1 x",
         nullptr,
         {},
         {"Stream is missing node 0 of 2.", "Stream is missing node 1 of 2."}},
        {"twice", "Count 1 1" + node0 + "Node0 13 StorageId 1 z", nullptr, {"a/A:7549"}, {}},
        {"an empty record", "Count 1 1Node0 0 ", nullptr, {"/:7549"}, {}},
        {"a cut record", "Count 1 1Node0 99 " + a, nullptr, {"a/A:7549"}, {}},
        {"a count of nothing",
         "Count 10 2147483647" + node0,
         nullptr,
         {"a/A:7549"},
         {"Stream is missing node 1 of 2147483647."}},
        {"negative", "Count 2 -3" + node0, nullptr, {}, {}},
        {"broken off",
         "Count 1 2" + node0 + "Node1 x",
         nullptr,
         {"a/A:7549"},
         {"Stream is missing node 1 of 2."}},
    };
    for (const auto& c : cases) {
        CapturedLog log;
        EXPECT_EQ(decoded(c.text, c.database), c.records) << c.what;
        Texts own;
        for (const CapturedLog::Entry& entry : log.entries()) {
            if (entry.source == SOURCE) own.push_back(entry.text);
        }
        EXPECT_EQ(own, c.errors) << c.what;
    }
}

TEST(DaemonList, OfNothingIsTold) {
    for (const char* text : {"Count 1 0", "", "Node0 0 ", "Count 4 none"}) {
        CapturedLog log;
        EXPECT_THAT(decoded(text), IsEmpty()) << text;
        EXPECT_THAT(log.texts(CoMsg::DEBUG), ElementsAre("Stream does not have any nodes.")) << text;
        EXPECT_THAT(log.texts(CoMsg::ERROR), IsEmpty()) << text;
    }
}

TEST(DaemonList, IsAppended) {
    Infos infos = {infoOf("first", "A", 1)};
    std::string text;
    Protocol::encode({infoOf("b", "B", 0), infoOf("a", "A", 2)}, text);
    Protocol::decode(text, infos, nullptr);
    EXPECT_THAT(summaries(infos), ElementsAre("first/A:1", "b/B:7549", "a/A:2"));
}

TEST(DaemonList, HoldsNoMoreThanItsMaximum) {
    const unsigned most = Protocol::MAX_LIST_NODES;
    for (unsigned count : {most, most + 1}) {
        std::string text = "Count 5 " + std::to_string(count);
        for (unsigned i = 0; i < count; ++i) text += "Node" + std::to_string(i) + " 0 ";
        CapturedLog log;
        Infos infos;
        Protocol::decode(text, infos, nullptr);
        EXPECT_EQ(infos.size(), std::min(count, most));
        EXPECT_EQ(log.texts(CoMsg::WARNING).size(), count > most ? 1u : 0u);
        EXPECT_THAT(log.texts(CoMsg::ERROR), IsEmpty());
    }
}

}  // namespace
